// The log listener manager in a process of its own: who makes it, and a listener that can never work.

#include <tarvo/tarvo.h>

#include <support/expect.h>

namespace
{
void raise()
{
    try
    {
        throw CkExceptionStream(CK_SOURCE_FILE, 1);
    }
    catch (const CkException& exception)
    {
        expect(exception.Is(CkExceptionStream::RTTI), "the exception itself arrives");
    }
}

int reports = 0;

/// Constructed before the manager and destroyed after it, if that is destroyed at all.
struct Late
{
    ~Late() { raise(); }
};
} // namespace

int main()
{
    static const Late late;
    const CkPreCondition<0> condition(CK_T("file"), 1, [] { return false; });
    raise();
    expect(CkLogListenerManager::HasInstance() == 0 && CkLogListenerManager::FindInstance() == nullptr,
           "where nobody listens no manager is made under the locks of the one who reports");

    CkLogListenerManager& manager = CkLogListenerManager::GetInstance();
    manager.NotifyListeners(CkLogListenerManager::eEventTrace, CK_SOURCE_FILE, 1, CK_T("nobody listens"));
    manager.RegisterListener(CkLogListenerManager::eEventException,
                             [](auto, const auto&, auto, const auto&) { ++reports; });
    raise();
    expect(reports == 1, "a report arrives");

    // The exception that it raises is reported to it again, and so on.
    manager.RegisterListener(CkLogListenerManager::eEventException, CkLogListenerManager::Listener());
    raise();
    expect(reports > 1 && reports < 10, "an empty listener is cut off");
    return failures;
}
