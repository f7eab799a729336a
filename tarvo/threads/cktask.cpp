#include <tarvo/threads/cktask.h>

#include <tarvo/core/ckexception.h>
#include <tarvo/threads/ckthreadpool.h>

CkTask::~CkTask() = default;

bool CkTask::doNotRun() const
{
    return false;
}

void CkTask::onAdd()
{
    m_terminated.Reset();
}

void CkTask::onBeforeRun() {}

void CkTask::onAfterRun() {}

void CkTask::onCancel() {}

void CkTask::onException(const CkException*) {}

/// Whether `step` returned true.
template <class Step>
bool CkTask::attempt(Step step)
{
    try
    {
        return m_successful = step();
    }
    catch (const CkException& exception)
    {
        m_successful = false;
        onException(&exception);
    }
    catch (...)
    {
        m_successful = false;
        onException(nullptr);
    }
    return false;
}

void CkTask::Run()
{
    struct SetAtEnd
    {
        ~SetAtEnd() { event.Set(); }
        CkEvent& event;
    } const setAtEnd{m_terminated};
    static_cast<void>(attempt([this] { return onBeforeRun(), true; }) &&
                      attempt([this] { return doRun().GetValue(); }) && attempt([this] { return onAfterRun(), true; }));
}

void CkTask::RunAsThread()
{
    CkThreadPool::GetInstance().AddTask(CkSmartPointer<CkTask>(this), CkThreadPool::eTaskPriorityNormal);
}

CkCheckReturn<bool, CkCheckReturnPolicyAssert> CkTask::WaitUntilTerminate(unsigned int timeoutMs)
{
    return m_terminated.Wait(timeoutMs) != CkEvent::eWaitTimeout;
}
