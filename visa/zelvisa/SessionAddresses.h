#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>

namespace zelvisa {

// The resource address of every open session, known from viOpen on, so that each record of a
// session carries it. A fixed table: nothing is allocated, and when more sessions are open than it
// holds, the newest ones are recorded without an address.
class SessionAddresses
{
public:
    static constexpr std::size_t s_AddressSize = 132; // a record's address field
    static constexpr std::size_t s_Capacity = 1024;

    // `parent` is the resource manager session it was opened from: closing that one closes it too.
    void set(std::uint32_t session, const char* address, std::uint32_t parent);
    // Copies the address of `session` into `out`, "" when unknown.
    void get(std::uint32_t session, char (&out)[s_AddressSize]) const;
    // Forgets a closed session and every session opened from it.
    void remove(std::uint32_t session);

private:
    struct Entry
    {
        std::uint32_t session;
        std::uint32_t parent;
        bool used;
        char address[s_AddressSize];
    };
    std::size_t find(std::uint32_t session) const; // its place, or where it would go
    void removeOne(std::uint32_t session);

    mutable std::mutex mutex;
    std::size_t count = 0;
    Entry entries[s_Capacity] = {};
};

} // namespace zelvisa
