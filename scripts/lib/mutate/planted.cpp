// A library of its own, which every module of a build with planted faults needs, and which is there before them.

#include <cstdlib>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

extern "C" __attribute__((visibility("default"))) int tarvo_fault_number = 0;
extern "C" __attribute__((visibility("default"))) unsigned char* tarvo_fault_reached = nullptr;

namespace
{
constexpr std::size_t size = 1 << 16;

__attribute__((constructor)) void begin()
{
    if (const char* const number = std::getenv("TARVO_FAULT"))
        tarvo_fault_number = std::atoi(number);
    const char* const path = std::getenv("TARVO_FAULT_REACHED");
    if (path == nullptr)
        return;
    const int file = open(path, O_RDWR | O_CLOEXEC);
    if (file < 0)
        return;
    void* const map = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    if (map != MAP_FAILED)
        tarvo_fault_reached = static_cast<unsigned char*>(map);
}
} // namespace
