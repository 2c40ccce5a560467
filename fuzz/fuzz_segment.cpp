// A whole trace segment as any local process may write it: the snapshot walked by the channel
// control (iterator, count, raw lines, find), then the model's three stages and every cell.
#include "ModelDriver.h"

#include <cstring>

ZEL_FUZZ_SETUP(ModelDriver::instance())

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    ModelDriver& d = ModelDriver::instance();
    FuzzSupport::Input in(data, size);
    const auto options = in.take<std::uint8_t>();
    const QByteArray bytes = in.bytes(ModelDriver::s_SegmentSize);
    std::memset(d.segment, 0, ModelDriver::s_SegmentSize);
    std::memcpy(d.segment, bytes.constData(), static_cast<std::size_t>(bytes.size()));

    ZelTracer::TraceChannelControl& control = *d.control;
    control.copySharedMemory(options & 1);
    const unsigned long count = control.countCopy();
    for (unsigned long n = 0; n < count + 2 && n < 200; ++n) {
        if (const ZelTracer::SlotEntry* slot = control.getLine(n))
            control.find(slot->id, slot->pid, n % 3, slot->timestamp);
    }
    unsigned walked = 0;
    const ZelTracer::BufferEntryIterator end = control.end();
    for (ZelTracer::BufferEntryIterator it = control.begin(); it != end && walked < 1000; ++it, ++walked) {
        if (const ZelTracer::FullEntry* e = *it)
            control.find(e->id, e->pid, e->kind, e->timestamp);
    }

    // The same bytes again, as the model takes them: the snapshot feeds the shared ring, which
    // must look older than a tick for this copy to take it.
    std::memcpy(d.segment, bytes.constData(), static_cast<std::size_t>(bytes.size()));
    LiveTraceModel& model = *d.model;
    if (!model.isRunning())
        model.start();
    std::memset(d.ringData() + 16, 0, 8);
    model.setCollapseSameCommands(options & 2);
    model.setShowOnlyStringParameters(options & 4);
    if (options & 8) {
        SingleFilter rule;
        rule.type = (options >> 4) % SingleFilter::TypeCount;
        rule.value = 7;
        rule.text = QStringLiteral("viWrite");
        model.addFilter(rule);
    } else {
        model.setFilter(ModelFilters());
    }
    d.runStagesAndReadAll();
    if (options & 0x80)
        model.clear();
    return 0;
}
