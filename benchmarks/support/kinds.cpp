#include <support/kinds.h>

namespace ours
{
const CkRTTI Root::RTTI(CK_T("Root"), nullptr, nullptr);
const CkRTTI Third::RTTI(CK_T("Third"), Root::RTTI, nullptr, nullptr);
const CkRTTI Second::RTTI(CK_T("Second"), Third::RTTI, nullptr, nullptr);
const CkRTTI First::RTTI(CK_T("First"), Second::RTTI, nullptr, nullptr);
const CkRTTI Leaf::RTTI(CK_T("Leaf"), First::RTTI, nullptr, nullptr);

Root::~Root() = default;

const CkRTTI& Root::GetRTTI() const
{
    return RTTI;
}

const CkRTTI& Third::GetRTTI() const
{
    return RTTI;
}

const CkRTTI& Second::GetRTTI() const
{
    return RTTI;
}

const CkRTTI& First::GetRTTI() const
{
    return RTTI;
}

const CkRTTI& Leaf::GetRTTI() const
{
    return RTTI;
}

std::unique_ptr<Root> makeLeaf()
{
    return std::make_unique<Leaf>();
}
} // namespace ours

namespace plain
{
Root::~Root() = default;
Third::~Third() = default;
Second::~Second() = default;
First::~First() = default;
Leaf::~Leaf() = default;

std::unique_ptr<Root> makeLeaf()
{
    return std::make_unique<Leaf>();
}
} // namespace plain

namespace qt
{
std::unique_ptr<Root> makeLeaf()
{
    return std::make_unique<Leaf>();
}
} // namespace qt
