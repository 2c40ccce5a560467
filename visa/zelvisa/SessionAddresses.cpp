#include "SessionAddresses.h"

#include <cstring>

namespace zelvisa {

namespace {

std::size_t home(std::uint32_t session)
{
    return (session * 2654435761u) % SessionAddresses::s_Capacity;
}

} // namespace

std::size_t SessionAddresses::find(std::uint32_t session) const
{
    std::size_t i = home(session);
    while (entries[i].used && entries[i].session != session)
        i = (i + 1) % s_Capacity;
    return i;
}

void SessionAddresses::set(std::uint32_t session, const char* address, std::uint32_t parent)
{
    std::lock_guard<std::mutex> guard(mutex);
    std::size_t i = find(session);
    if (!entries[i].used) {
        if (count + 1 >= s_Capacity) // one place stays free, so that every search ends
            return;
        ++count;
    }
    Entry& e = entries[i];
    e.used = true;
    e.session = session;
    e.parent = parent;
    const std::size_t n = address ? strnlen(address, s_AddressSize - 1) : 0;
    std::memcpy(e.address, address ? address : "", n);
    e.address[n] = '\0';
}

void SessionAddresses::get(std::uint32_t session, char (&out)[s_AddressSize]) const
{
    std::lock_guard<std::mutex> guard(mutex);
    const Entry& e = entries[find(session)];
    if (e.used)
        std::memcpy(out, e.address, std::strlen(e.address) + 1);
    else
        out[0] = '\0';
}

void SessionAddresses::remove(std::uint32_t session)
{
    std::lock_guard<std::mutex> guard(mutex);
    std::uint32_t children[s_Capacity];
    std::size_t n = 0;
    for (const Entry& e : entries) {
        if (e.used && e.parent == session && e.session != session)
            children[n++] = e.session;
    }
    for (std::size_t i = 0; i < n; ++i)
        removeOne(children[i]);
    removeOne(session);
}

void SessionAddresses::removeOne(std::uint32_t session)
{
    std::size_t gap = find(session);
    if (!entries[gap].used)
        return;
    entries[gap].used = false;
    --count;
    // Entries after the gap that would be found through it move into it (linear probing without markers).
    for (std::size_t i = (gap + 1) % s_Capacity; entries[i].used; i = (i + 1) % s_Capacity) {
        const std::size_t want = home(entries[i].session);
        const bool reachable = gap <= i ? (want <= gap || want > i) : (want <= gap && want > i);
        if (reachable) {
            entries[gap] = entries[i];
            entries[i].used = false;
            gap = i;
        }
    }
}

} // namespace zelvisa
