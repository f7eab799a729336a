// Listen with a filter: exceptions report themselves as they are constructed; who listens says which of them matter.

#include <tarvo/tarvo.h>

#include <iostream>

using Log = CkLogListenerManager;

void print(Log::EEventType, const CString& fileName, unsigned int codeLine, const CString& message)
{
    std::cout << fileName.ToUtf8() << '(' << codeLine << "): " << message.ToUtf8() << '\n';
}

int main()
{
    static int exceptions = 0; // Listeners are never removed: what they use must stay.
    const auto count = [](auto, const auto&, auto, const auto&) { ++exceptions; };

    Log& log = Log::GetInstance();
    log.RegisterListener(Log::eEventException, count);
    log.RegisterListener(Log::eEventException, &print, CK_T("^CkException(Stream|WrongFileVersion)$"));
    log.RegisterListener(Log::eEventTrace, &print);

    try
    {
        throw CkExceptionStream(CK_SOURCE_FILE, __LINE__);
    }
    catch (const CkException&)
    {
        // Handled here, but reported all the same.
    }
    const CkExceptionOutOfMemory neverThrown(CK_SOURCE_FILE, __LINE__);
    log.NotifyListeners(Log::eEventTrace, CK_SOURCE_FILE, __LINE__, CK_T("3 pages are loaded"));
    std::cout << exceptions << " exceptions\n";
}

// Prints:
//   tour\listen(26): CkExceptionStream
//   tour\listen(33): 3 pages are loaded
//   2 exceptions
