#pragma once

#include <tarvo/config.h>
#include <tarvo/containers/cklist.h>
#include <tarvo/core/ckfunctor.h>
#include <tarvo/core/cksingleton.h>
#include <tarvo/platform/framework/cstring.h>
#include <tarvo/platform/framework/regularexpression.h>
#include <tarvo/threads/ckcriticalsection.h>

#include <array>
#include <atomic>

class CkLogListenerManager;
extern template class TARVO_API CkSingleton<CkLogListenerManager>;

/// The one channel through which the library, and whoever likes, reports what happens: exceptions as they are
/// constructed, contract conditions that fail, traces. An application registers listeners for the types that it wants
/// to hear of.
///
/// A listener may come with a filter: a regular expression (see `tarvo::framework::RegularExpression`) that must be
/// found somewhere in the message, in the case that it is written in. Exceptions have the name of their class as
/// message; conditions have an empty one.
///
/// Threads: every operation may be called from any thread. One lock serialises them all, and is held while listeners
/// run: they are called one after another, in the order of their registration, on the thread that reports. A listener
/// may itself report, register listeners, construct exceptions, and create and set events; what it registers for the
/// type that is being reported is called from the next report on. It must not wait for another thread that may report
/// or register, nor enter a lock under which any thread may do so, which goes for constructing an exception as well; so
/// it gives the pool no tasks, and does not ask for a singleton that may not be made yet, nor whether there is one. A
/// report of a type that nobody listens to takes no lock.
/// Lifetime: made by whoever asks for the instance first, destroyed when the library is unloaded; what is reported
/// after that reaches nobody. Listeners are never removed, and the modules that their code is in stay loaded.
/// Failure: registering raises what copying and allocation raise, and `std::regex_error` for a filter that is none; the
/// manager is as before then. What a listener raises ends the report, the listeners behind it are not called, and the
/// exception goes to the one who reports, as does the `CkException` of an empty listener. A report by the constructor
/// of an exception drops it.
class TARVO_API CkLogListenerManager : public CkSingleton<CkLogListenerManager>
{
public:
    /// What is reported. The library uses 1 to 4 and 7; the others are the application's own.
    enum EEventType : int
    {
        eEventUser0 = 0,
        eEventPreCondition = 1,
        eEventPostCondition = 2,
        eEventInvariant = 3,
        eEventException = 4,
        eEventUser5 = 5,
        eEventUser6 = 6,
        eEventTrace = 7
    };

    /// Takes the type, the source file and line that report, and the message.
    using Listener = CkFunctor<void, CkSequence<EEventType, const CString&, unsigned int, const CString&>>;

    CkLogListenerManager(const CkLogListenerManager&) = delete;
    CkLogListenerManager& operator=(const CkLogListenerManager&) = delete;
    ~CkLogListenerManager();

    /// Add a listener for `type`; a listener may be added several times. An empty filter is none. A type that does not
    /// exist raises `CkExceptionPreconditionViolation`.
    void RegisterListener(EEventType type, const Listener& listener);
    void RegisterListener(EEventType type, const Listener& listener, const CString& filter);

    /// Calls the listeners for `type` whose filter, if any, is found in `message`. A type that does not exist has none.
    void NotifyListeners(EEventType type, const CString& fileName, unsigned int codeLine, const CString& message)
    {
        if (isListenedTo(type))
            notify(type, fileName, codeLine, message);
    }

protected:
    friend class CkSingleton<CkLogListenerManager>;
    CkLogListenerManager();

private:
    struct SListenerData
    {
        Listener listener;
        tarvo::framework::RegularExpression filter;
    };

    using ListenerList = CkList<SListenerData, 17, unsigned int>;

    static constexpr unsigned int typeCount = 8;

    static constexpr unsigned int numberOf(EEventType type) noexcept { return static_cast<unsigned int>(type); }

    bool isListenedTo(EEventType type) const noexcept
    {
        return numberOf(type) < typeCount && (m_listenedTo.load(std::memory_order_relaxed) >> numberOf(type) & 1u) != 0;
    }

    void append(EEventType type, SListenerData data);
    void notify(EEventType type, const CString& fileName, unsigned int codeLine, const CString& message);

    CkCriticalSection m_lock{4000};
    std::array<ListenerList, typeCount> m_listeners; ///< Those for type `t` at `t`, in the order of registration.

    /// Bit `t` is set when there are listeners for type `t`. Written under the lock. Read without order: the lists are
    /// looked at under the lock, and a registration that a report must see has happened before it anyway.
    std::atomic<unsigned int> m_listenedTo{0};
};
