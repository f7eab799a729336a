// Before Qt, whose keywords are macros.
#include <oneapi/tbb/version.h>

#include <QtGlobal>
#include <absl/base/config.h>
#include <benchmark/benchmark.h>
#include <boost/version.hpp>

#include <gnu/libc-version.h>

#include <algorithm>
#include <string>

namespace
{
std::string compiler()
{
#if defined(__clang__)
    return __VERSION__;
#else
    return std::string("g++ ") + __VERSION__;
#endif
}

std::string boostVersion()
{
    std::string version = BOOST_LIB_VERSION;
    std::replace(version.begin(), version.end(), '_', '.');
    return version;
}

/// The results say what they were measured with.
[[maybe_unused]] const bool areVersionsKnown = []
{
    benchmark::AddCustomContext(
        "versions", compiler() + ", libstdc++ " + std::to_string(_GLIBCXX_RELEASE) + ", glibc " +
                        gnu_get_libc_version() + ", Qt " + qVersion() + ", Boost " + boostVersion() + ", Abseil " +
                        std::to_string(ABSL_LTS_RELEASE_VERSION) + ", TBB " + std::to_string(TBB_VERSION_MAJOR) + "." +
                        std::to_string(TBB_VERSION_MINOR) + "." + std::to_string(TBB_VERSION_PATCH) +
                        ", Google Benchmark " + TARVO_BENCHMARK_VERSION);
    return true;
}();
} // namespace
