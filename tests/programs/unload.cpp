// Loads a client module, and with it the library, uses both and unloads them, many times over. The program itself does
// not use the library, so nothing else keeps it.

#include <support/dynamiclibrary.h>

#include <cstdio>
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
} // namespace

int main()
{
    for (int round = 0; round < 200; ++round)
    {
        if (!loadUseUnload(round))
            return 1;
    }
    return 0;
}
