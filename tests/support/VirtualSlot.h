#pragma once
// The places of virtual operations are a contract with hosts and tools modules
// built apart from this one: a reordered or inserted operation would still
// compile everywhere and break at run time. VirtualSlot reads the place of an
// operation from its member pointer as the Itanium C++ ABI lays it out: 1 + the
// byte offset in the table, followed by the this-adjustment. A virtual
// destructor takes slots 0 and 1, so operation N of a table sits in slot N.
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace qvtest
{

template <typename MemberPointer>
int64_t VirtualSlot(MemberPointer member)
{
    struct
    {
        uintptr_t pointer;
        ptrdiff_t adjustment;
    } raw;
    static_assert(sizeof(raw) == sizeof(member));
    std::memcpy(&raw, &member, sizeof(raw));
    return static_cast<int64_t>((raw.pointer - 1) / sizeof(void*));
}

}  // namespace qvtest
