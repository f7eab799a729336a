#pragma once

#include "writers.h"

#include <string>

/// Writes all that the library tells of itself and of the machine, and what is registered under `typeNames`. Blocks for
/// some 50 ms, in which the speed of the processor is measured.
void writeReport(Writer& writer, const Texts& typeNames);

/// The version of the library that the program was compiled for.
std::string libraryVersion();
