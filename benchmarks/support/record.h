#pragma once

#include <utility>

/// What the binary streams write and read: one value of each kind that records are made of, the text in the type of the
/// stream's library.
template <class Text>
struct Record
{
    bool flag = false;
    short small = 0;
    int medium = 0;
    long long large = 0;
    double real = 0;
    Text text{};

    bool operator==(const Record&) const = default;
};

/// With a text of 12 characters.
template <class Text>
Record<Text> makeRecord(Text text)
{
    return {true, -12345, 1'234'567'890, -1'234'567'890'123'456'789, 2.718281828459045, std::move(text)};
}

template <class Stream, class Text>
void write(Stream& stream, const Record<Text>& record)
{
    stream << record.flag << record.small << record.medium << record.large << record.real << record.text;
}

template <class Stream, class Text>
void read(Stream& stream, Record<Text>& record)
{
    stream >> record.flag >> record.small >> record.medium >> record.large >> record.real >> record.text;
}
