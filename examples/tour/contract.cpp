// State a contract: what must hold stands in the code as an object, which reports when it does not.

#include <tarvo/tarvo.h>

#include <iostream>

using Log = CkLogListenerManager;
constexpr const WCHAR* sourceFile = CK_T("tour\\contract");

class Account
{
public:
    void Withdraw(int amount)
    {
        // Level 0 only reports. Looked at here and again where the function is left.
        const CkInvariant<0> covered(sourceFile, __LINE__, [this] { return m_balance >= 0; });
        // Level 2 raises as well.
        const CkPreCondition<2> positive(sourceFile, __LINE__, [amount] { return amount > 0; });
        m_balance -= amount;
    }

private:
    int m_balance = 100;
};

void print(Log::EEventType type, const CString& fileName, unsigned int codeLine, const CString&)
{
    std::cout << (type == Log::eEventInvariant ? "invariant" : "pre-condition") << " broken: " << fileName.ToUtf8()
              << '(' << codeLine << ")\n";
}

int main()
{
    Log::GetInstance().RegisterListener(Log::eEventPreCondition, &print);
    Log::GetInstance().RegisterListener(Log::eEventInvariant, &print);
    Account account;
    account.Withdraw(120);
    try
    {
        Account().Withdraw(-1);
    }
    catch (const CkExceptionCondition&)
    {
        std::cout << "nothing was withdrawn\n";
    }
}

// Prints:
//   invariant broken: tour\contract(16)
//   pre-condition broken: tour\contract(18)
//   nothing was withdrawn
