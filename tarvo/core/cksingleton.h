#pragma once

#include <tarvo/library/unloadsequence.h>
#include <tarvo/platform/framework/cstring.h>
#include <tarvo/threads/ckcriticalsection.h>

#include <atomic>

/// Base of a class with one instance in the process, made on first use: `class Log : public CkSingleton<Log>`, with a
/// default constructor that only `friend class CkSingleton<Log>` can reach.
///
/// Threads: all operations may be called from any thread. An existing instance costs one read; making one holds
/// `GetCriticalSectionSingleton()`, also while the constructor of `T` runs, which must not wait for a thread that loads
/// a module or makes a singleton.
/// Lifetime: the instance is destroyed when the module that made it goes, singletons first asked for later going first.
/// One that is asked for after that is made anew and stays for the rest of the process.
/// Failure: what the constructor of `T` raises passes on; the next call tries again.
///
/// Where several modules use one singleton, the module that owns it instantiates the template once, so that all see the
/// same instance. Before the class, its header says `class Log; extern template class LOG_API CkSingleton<Log>;`, where
/// LOG_API exports from that module and imports into others; one of its sources says `template class
/// CkSingleton<Log>;`.
template <class T>
class TARVO_SHARED_TEMPLATE CkSingleton
{
public:
    CkSingleton(const CkSingleton&) = delete;
    CkSingleton& operator=(const CkSingleton&) = delete;

    static T& GetInstance();

    /// 1 when there is an instance, else 0. Makes none.
    static int HasInstance();

    /// The instance, or null when there is none. Makes none and takes no lock, so it may be called under any.
    static T* FindInstance() noexcept;

protected:
    CkSingleton() = default;
    ~CkSingleton() = default;

private:
    static T& create();
    static void destroy();

    static std::atomic<T*> s_pInstance;
    static bool s_registered; ///< Guarded by the singleton lock.
    static tarvo::detail::UnloadEntry s_unload;
};

template <class T>
constinit std::atomic<T*> CkSingleton<T>::s_pInstance{nullptr};

template <class T>
constinit bool CkSingleton<T>::s_registered = false;

template <class T>
constinit tarvo::detail::UnloadEntry CkSingleton<T>::s_unload{&CkSingleton<T>::destroy};

// Not in the class, where they would be inline: not every platform exports those from an explicit instantiation, and
// compiled into another module they would take that module for the instance's.

template <class T>
T& CkSingleton<T>::GetInstance()
{
    // Acquire pairs with the release in `create`.
    T* const instance = s_pInstance.load(std::memory_order_acquire);
    return instance != nullptr ? *instance : create();
}

template <class T>
int CkSingleton<T>::HasInstance()
{
    const CkCriticalSectionAuto guard(GetCriticalSectionSingleton());
    return s_pInstance.load(std::memory_order_relaxed) != nullptr ? 1 : 0;
}

template <class T>
T* CkSingleton<T>::FindInstance() noexcept
{
    return s_pInstance.load(std::memory_order_acquire);
}

template <class T>
T& CkSingleton<T>::create()
{
    const CkCriticalSectionAuto guard(GetCriticalSectionSingleton());
    if (!s_registered)
    {
        tarvo::detail::registerForThisModule(s_unload);
        s_registered = true;
    }
    T* instance = s_pInstance.load(std::memory_order_relaxed);
    if (instance == nullptr)
    {
        instance = new T;
        s_pInstance.store(instance, std::memory_order_release);
    }
    return *instance;
}

/// Takes no lock. The pointer goes first: what the destructor reports finds no half-destroyed instance.
template <class T>
void CkSingleton<T>::destroy()
{
    delete s_pInstance.exchange(nullptr, std::memory_order_acq_rel);
}

/// Add 1 to, or take 1 from, a count that clients may keep of their singletons. Not synchronised; the name is not used
/// and the library does not read the count.
TARVO_API void IncrementSingletonCounter(const CString& name);
TARVO_API void DecrementSingletonCounter(const CString& name);

/// Whether the library is still building its static objects: never, when a client can ask.
TARVO_API bool IsStaticInit();
