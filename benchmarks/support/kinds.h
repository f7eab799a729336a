#pragma once

#include <tarvo/core/ckrtti.h>

#include <QObject>

#include <memory>

// The same chain of classes for each way to ask an object for its class: Root, Third, Second, First, Leaf, where the
// number is that of the steps up from the leaf. All are defined in a source of their own, as classes of a program are,
// so that the code which asks knows nothing but the root.

namespace ours
{
class Root
{
public:
    static const CkRTTI RTTI;

    Root() = default;
    Root(const Root&) = delete;
    Root& operator=(const Root&) = delete;
    virtual ~Root();

    virtual const CkRTTI& GetRTTI() const;
    bool IsKindOf(const CkRTTI& rtti) const { return GetRTTI().IsKindOf(rtti); }
};

class Third : public Root
{
public:
    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override;
};

class Second : public Third
{
public:
    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override;
};

class First : public Second
{
public:
    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override;
};

class Leaf : public First
{
public:
    static const CkRTTI RTTI;
    const CkRTTI& GetRTTI() const override;
};

std::unique_ptr<Root> makeLeaf();
} // namespace ours

namespace plain
{
class Root
{
public:
    Root() = default;
    Root(const Root&) = delete;
    Root& operator=(const Root&) = delete;
    virtual ~Root();
};

class Third : public Root
{
public:
    ~Third() override;
};

class Second : public Third
{
public:
    ~Second() override;
};

class First : public Second
{
public:
    ~First() override;
};

class Leaf : public First
{
public:
    ~Leaf() override;
};

std::unique_ptr<Root> makeLeaf();
} // namespace plain

namespace qt
{
class Root : public QObject
{
    Q_OBJECT
};

class Third : public Root
{
    Q_OBJECT
};

class Second : public Third
{
    Q_OBJECT
};

class First : public Second
{
    Q_OBJECT
};

class Leaf : public First
{
    Q_OBJECT
};

std::unique_ptr<Root> makeLeaf();
} // namespace qt
