#pragma once

/// Lets a console show what the program writes as UTF-8, as long as the object lives.
class Utf8Console
{
public:
    Utf8Console();
    Utf8Console(const Utf8Console&) = delete;
    Utf8Console& operator=(const Utf8Console&) = delete;
    ~Utf8Console();

private:
    unsigned int m_before; ///< The code page that the console had.
};
