// The shared ring as a broken or hostile copy of the tool may leave it, read by a second copy:
// it attaches (counting itself in), runs the three stages on it, shows every cell and leaves.
#include "ModelDriver.h"
#include "TraceTestSupport.h"

#include <cstring>

ZEL_FUZZ_SETUP(ModelDriver::instance())

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    ModelDriver& d = ModelDriver::instance();
    FuzzSupport::Input in(data, size);
    const auto options = in.take<std::uint8_t>();
    const QByteArray bytes = in.bytes(ModelDriver::s_RingSize);
    std::memset(d.ringData(), 0, ModelDriver::s_RingSize);
    std::memcpy(d.ringData(), bytes.constData(), static_cast<std::size_t>(bytes.size()));

    // A few well-formed records in the segment, so that the shared stage has something to add
    // behind whatever the ring claims to hold.
    ZelTracer::SharedMemoryHeader& header = *reinterpret_cast<ZelTracer::SharedMemoryHeader*>(d.segment);
    header.tracingActive = 1;
    header.readIndex = 0;
    header.writeIndex = options & 3;
    for (std::uint32_t i = 0; i < header.writeIndex; ++i) {
        const ZelTracer::FullEntry e = makeEntry(i + 1, 100, i & 1, "viWrite");
        std::memcpy(d.segment + ZelTracer::s_HeaderSize + i * ZelTracer::s_SlotSize, &e, ZelTracer::s_SlotSize);
    }

    LiveTraceModel& model = *d.model;
    model.start();
    model.setCollapseSameCommands(options & 4);
    model.setShowOnlyStringParameters(options & 8);
    if (options & 0x10)
        model.clear();
    d.runStagesAndReadAll();
    model.detachSharedRingBuffer();
    return 0;
}
