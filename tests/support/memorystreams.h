#pragma once

#include <tarvo/streams/ckstreamreadbinary.h>
#include <tarvo/streams/ckstreamwritebinary.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <vector>

using Bytes = std::vector<unsigned char>;

inline Bytes operator+(Bytes left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

/// Keeps what is written, and the size of each call of the hook.
class MemoryWriter : public CkStreamWriteBinary
{
public:
    Bytes bytes;
    std::vector<unsigned __int64> calls;

protected:
    CkStreamWrite& write(const void* data, unsigned __int64 size) override
    {
        const auto* const first = static_cast<const unsigned char*>(data);
        bytes.insert(bytes.end(), first, first + size);
        calls.push_back(size);
        return *this;
    }
};

/// Gives bytes back, and keeps the size of each call of the hook.
class MemoryReader : public CkStreamReadBinary
{
public:
    explicit MemoryReader(Bytes data) : bytes(std::move(data)) {}

    std::size_t Rest() const { return bytes.size() - position; }

    Bytes bytes;
    std::size_t position = 0;
    std::vector<unsigned __int64> calls;
    std::function<void()> onRead;

protected:
    unsigned __int64 read(void* data, unsigned __int64 size) override
    {
        calls.push_back(size);
        if (onRead)
            onRead();
        const auto count = static_cast<std::size_t>(std::min<unsigned __int64>(size, Rest()));
        if (count != 0)
            std::memcpy(data, bytes.data() + position, count);
        position += count;
        return count;
    }
};
