#pragma once

// Everything that a client of the library needs.

#include <tarvo/containers/ckarray.h>
#include <tarvo/containers/ckcontainer.h>
#include <tarvo/containers/cklist.h>
#include <tarvo/containers/ckmap.h>
#include <tarvo/containers/ckplexmanager.h>
#include <tarvo/containers/ckset.h>
#include <tarvo/core/ckatomiccounter.h>
#include <tarvo/core/ckbreakpoint.h>
#include <tarvo/core/ckcheckreturn.h>
#include <tarvo/core/ckcondition.h>
#include <tarvo/core/ckexception.h>
#include <tarvo/core/ckformat.h>
#include <tarvo/core/ckfunctor.h>
#include <tarvo/core/ckinoncopyable.h>
#include <tarvo/core/ckinttotype.h>
#include <tarvo/core/cklatesterror.h>
#include <tarvo/core/ckloglistenermanager.h>
#include <tarvo/core/ckreferencecountedclass.h>
#include <tarvo/core/ckreferencecountedcontainer.h>
#include <tarvo/core/ckrtti.h>
#include <tarvo/core/cksingleton.h>
#include <tarvo/core/cksmartpointer.h>
#include <tarvo/core/ckweakpointer.h>
#include <tarvo/streams/ckbasetype.h>
#include <tarvo/streams/ckbasetypes.h>
#include <tarvo/streams/ckiclassindex.h>
#include <tarvo/streams/ckiclassname.h>
#include <tarvo/streams/ckidumpable.h>
#include <tarvo/streams/ckiserializable.h>
#include <tarvo/streams/ckstreamreadbinary.h>
#include <tarvo/streams/ckstreamwriteascii.h>
#include <tarvo/streams/ckstreamwritebinary.h>
#include <tarvo/threads/ckcriticalsection.h>
#include <tarvo/version.h>
