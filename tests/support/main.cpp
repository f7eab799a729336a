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
/// Ends the program with a message when a single test takes longer than any test should.
class Watchdog : public testing::EmptyTestEventListener
{
public:
    void OnTestStart(const testing::TestInfo& test) override
    {
        const std::string name = std::string(test.test_suite_name()) + "." + test.name();
        m_ended = false;
        m_thread = std::thread([this, name] { watch(name); });
    }

    void OnTestEnd(const testing::TestInfo&) override
    {
        {
            const std::lock_guard guard(m_mutex);
            m_ended = true;
        }
        m_condition.notify_one();
        m_thread.join();
    }

private:
    void watch(const std::string& name)
    {
        std::unique_lock guard(m_mutex);
        if (m_condition.wait_for(guard, std::chrono::minutes(3), [this] { return m_ended; }))
            return;
        std::fprintf(stderr, "%s hangs\n", name.c_str());
        std::fflush(stderr);
        std::abort();
    }

    std::thread m_thread;
    std::mutex m_mutex;
    std::condition_variable m_condition;
    bool m_ended = false;
};
} // namespace

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    testing::UnitTest::GetInstance()->listeners().Append(new Watchdog);
    return RUN_ALL_TESTS();
}
