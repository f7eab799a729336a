#pragma once

#include <tarvo/tarvo.h>

#include <string>

// What the program says to its user.

namespace archive
{
/// A line about something that the user should know, on standard error behind the name of the program. From any thread.
void note(const CString& text);

/// A line of what the user has asked for, on standard output.
void print(const std::string& line);

/// Raises an ArchiveException if not everything could be printed.
void finishPrinting();

/// From here on every exception whose class name the expression is found in is noted as it comes to be; all are, where
/// it is empty. Raises `std::regex_error`.
void noteExceptions(const CString& expression);

/// Replaces the line that the cursor is in on standard error, which is a terminal; notes go above it.
void showStatus(const std::string& line);
} // namespace archive
