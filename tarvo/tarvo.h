#pragma once

// Everything that a client of the library needs.

#include <tarvo/core/ckatomiccounter.h>
#include <tarvo/core/ckexception.h>
#include <tarvo/core/ckformat.h>
#include <tarvo/core/ckinoncopyable.h>
#include <tarvo/core/ckinttotype.h>
#include <tarvo/core/cklatesterror.h>
#include <tarvo/core/ckreferencecountedclass.h>
#include <tarvo/core/ckrtti.h>
#include <tarvo/core/cksingleton.h>
#include <tarvo/core/cksmartpointer.h>
#include <tarvo/core/ckweakpointer.h>
#include <tarvo/streams/ckidumpable.h>
#include <tarvo/streams/ckstreamreadbinary.h>
#include <tarvo/streams/ckstreamwriteascii.h>
#include <tarvo/streams/ckstreamwritebinary.h>
#include <tarvo/threads/ckcriticalsection.h>
#include <tarvo/version.h>
