// Loads a client module, and with it the library, uses both and unloads them, many times over; nothing is left behind.
// With an argument, uses them once and ends with them, and with this exit code, while threads go on using them. The
// program itself does not use the library, so nothing else keeps it.

#include <support/dynamiclibrary.h>
#include <support/resources.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace
{
constexpr const char* client = "tarvo_plugin_client";

bool failed(const char* what, int round)
{
    std::printf("round %d: %s\n", round, what);
    return false;
}

bool loadUseUnload(int round)
{
    void* const module = dynamiclibrary::load(client);
    if (module == nullptr)
        return failed("the client does not load", round);
    auto* const isFresh = dynamiclibrary::find<bool()>(module, "isFresh");
    if (isFresh == nullptr || !isFresh())
        return failed("a class is missing, or there is a singleton already", round);
    auto* const use = dynamiclibrary::find<int(char*)>(module, "use");
    char order[3] = {};
    if (use == nullptr || use(order) != 0)
        return failed("the client does not work", round);
    if (order[0] != 0)
        return failed("a singleton went too early", round);
    dynamiclibrary::unload(module);
    if (std::strcmp(order, "21") != 0)
        return failed("the singletons did not go in the reverse order of their first use", round);
    if (dynamiclibrary::isLoaded(client) || dynamiclibrary::isLoaded(dynamiclibrary::tarvo))
        return failed("something was not unloaded", round);
    return true;
}

int loadOften()
{
    // What the system keeps for good, it has by then.
    constexpr int firstRounds = 100;
    // Now and then threads leave something in the heap; what each load leaves is left in all of the windows.
    constexpr int windows = 8;
    constexpr int rounds = 25;
    int round = 0;
    for (; round < firstRounds; ++round)
    {
        if (!loadUseUnload(round))
            return 1;
    }
    const Resources before = Resources::Now();
    Resources now = before;
    std::size_t leastGrowth = SIZE_MAX;
    for (int window = 0; window < windows; ++window)
    {
        const std::size_t memory = now.memory;
        for (int end = round + rounds; round < end; ++round)
        {
            if (!loadUseUnload(round))
                return 1;
        }
        now = Resources::Now();
        leastGrowth = std::min(leastGrowth, now.memory > memory ? now.memory - memory : 0);
    }
    std::printf("memory %zu, %zu handles, %zu threads; then %zu, %zu, %zu; at least %zu in %d loads\n", before.memory,
                before.handles, before.threads, now.memory, now.handles, now.threads, leastGrowth, rounds);
    const bool grown = leastGrowth > rounds * Resources::leftByLoading || now.handles != before.handles ||
                       now.threads != before.threads;
    return grown ? 1 : 0;
}

int endInUse(int exitCode)
{
    void* const module = dynamiclibrary::load(client);
    char order[3] = {};
    if (module == nullptr || dynamiclibrary::find<int(char*)>(module, "use")(order) != 0)
        return 1;
    dynamiclibrary::find<void()>(module, "stayBusy")();
    std::exit(exitCode);
}
} // namespace

int main(int count, char** arguments)
{
    return count > 1 ? endInUse(std::atoi(arguments[1])) : loadOften();
}
