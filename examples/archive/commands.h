#pragma once

#include "commandline.h"
#include "exceptions.h"

// The commands of the program. Each raises what keeps it from doing what it should.

namespace archive
{
void pack(const CommandLine& commandLine);
void list(const CommandLine& commandLine);
void unpack(const CommandLine& commandLine);

/// Notes what is wrong with an archive and goes on with the next; returns the worst of the results.
ExitCode verify(const CommandLine& commandLine);
} // namespace archive
