#include <tarvo/config.h>

#include <cstdio>
#include <cstdlib>

namespace tarvo::detail
{
void trap(const char* message) noexcept
{
    std::fprintf(stderr, "Tarvo: %s\n", message);
    std::fflush(stderr);
    std::abort();
}
} // namespace tarvo::detail
