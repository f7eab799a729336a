#pragma once

// The marks in the header of a stored text, each with the width it is stored in.

namespace tarvo::detail::stringheader
{
inline constexpr unsigned char wideTagByte = 0xFF;
inline constexpr unsigned short wideTagWord = 0xFFFE;

/// The length stands in the next wider field.
inline constexpr unsigned char longerThanByte = 0xFF;
inline constexpr unsigned short longerThanWord = 0xFFFF;
inline constexpr unsigned int longerThanInt = 0xFFFFFFFFu;

/// The first length that does not go into the 16-bit field: one less than its mark, so that the field never holds the
/// wide-text tag.
inline constexpr unsigned short wordLimit = 0xFFFE;
} // namespace tarvo::detail::stringheader
