#include <tarvo/config.h>

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>

namespace
{
/// Ends the program with a message when a single test takes longer than any test should. One thread for the whole run:
/// tests of handles and threads must not see any come and go.
class Watchdog : public testing::EmptyTestEventListener
{
public:
    void OnTestProgramStart(const testing::UnitTest&) override
    {
        m_thread = std::thread([this] { watch(); });
    }

    void OnTestStart(const testing::TestInfo& test) override
    {
        const std::lock_guard guard(m_mutex);
        m_name = std::string(test.test_suite_name()) + "." + test.name();
        ++m_testNumber;
    }

    void OnTestProgramEnd(const testing::UnitTest&) override
    {
        {
            const std::lock_guard guard(m_mutex);
            m_ended = true;
        }
        m_condition.notify_one();
        m_thread.join();
    }

private:
    void watch()
    {
        std::unique_lock guard(m_mutex);
        for (int seen = -1; !m_ended && seen != m_testNumber;)
        {
            seen = m_testNumber;
            m_condition.wait_for(guard, std::chrono::minutes(2), [this] { return m_ended; });
        }
        if (m_ended)
            return;
        std::fprintf(stderr, "%s hangs\n", m_name.c_str());
        std::fflush(stderr);
        std::abort();
    }

    std::thread m_thread;
    std::mutex m_mutex;
    std::condition_variable m_condition;
    std::string m_name;
    int m_testNumber = 0;
    bool m_ended = false;
};
} // namespace

// The heaps of the sanitizers would end the process where tests ask for more memory than there is.
extern "C" TARVO_EXPORT const char* __asan_default_options()
{
    return "allocator_may_return_null=1";
}

extern "C" TARVO_EXPORT const char* __tsan_default_options()
{
    return "allocator_may_return_null=1";
}

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    testing::UnitTest::GetInstance()->listeners().Append(new Watchdog);
    return RUN_ALL_TESTS();
}
