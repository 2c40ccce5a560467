#pragma once

#include <string>

namespace ZelTracer {

// Every running copy of the tool (a window or a recorder) holds one, for its whole life, whether it
// traces or not: only the last copy to quit may switch tracing or recording off, and a copy that is
// not tracing has not joined the shared ring, so the ring's count of its users cannot tell. A small
// System V segment named after the ring is attached by each copy; the kernel counts the processes
// attached and drops a copy that dies, however it dies.
class ToolPresence
{
public:
    explicit ToolPresence(std::string const& ringName);
    ~ToolPresence();
    ToolPresence(ToolPresence const&) = delete;
    ToolPresence& operator=(ToolPresence const&) = delete;

    // False when the segment could not be made or attached (then nothing is known of other copies).
    bool isKnown() const { return address != nullptr; }
    // Other processes attached besides this one; 0 when not known.
    unsigned othersAttached() const;
    // Whether another copy of the tool still runs; what the shared ring says when nothing is known.
    bool othersRemain(bool ringSaysSo) const { return isKnown() ? othersAttached() > 0 : ringSaysSo; }

    // The System V key of the presence segment of a ring.
    static int keyFor(std::string const& ringName);

private:
    int shmId = -1;
    void* address = nullptr;
};

} // namespace ZelTracer
