// The timeline of records whose times, durations, kinds and statuses any producer may write: the
// rows of a model read back as calls, in every kind of lane, laid out at any view, hit and labelled.
#include "ModelDriver.h"
#include "TimelineAxis.h"
#include "TimelineLayout.h"
#include "TimelineModelSource.h"

#include <cstring>
#include <vector>

namespace {

struct Timeline
{
    Timeline()
        : model(nullptr, *ModelDriver::instance().control,
                QString::fromStdString(TestNames::sharedRingName("fuzztimeline")))
        , source(model)
    {
        source.setClock([] { return timeline::Nanoseconds(1700000000) * timeline::s_NanosecondsPerSecond; });
    }
    static Timeline& instance()
    {
        static Timeline t;
        return t;
    }

    // Never started: it shows what it is given, as a capture window's model does.
    LiveTraceModel model;
    timeline::TimelineModelSource source;
};

const char* const s_Texts[] = {"viRead(7)", "viWrite(7, \"*IDN?\\n\")", "", "viRead(7, \"1\")"};
const char* const s_Addresses[] = {"GPIB0::22::INSTR", "", "TCPIP0::10.0.0.5::INSTR", "ASRL1::INSTR"};

} // namespace

ZEL_FUZZ_SETUP(Timeline::instance())

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace timeline;
    Timeline& t = Timeline::instance();
    FuzzSupport::Input in(data, size);
    const auto options = in.take<std::uint8_t>();
    const auto width = in.take<std::uint16_t>();
    const auto viewStart = in.take<std::int64_t>();
    const auto viewEnd = in.take<std::int64_t>();
    const auto zoomAt = in.take<double>();
    const auto zoomBy = in.take<double>();
    const auto panBy = in.take<double>();

    std::vector<ZelTracer::FullEntry> records;
    while (!in.done() && records.size() < 200) {
        ZelTracer::FullEntry e;
        std::memset(&e, 0, sizeof e);
        e.timestamp = in.take<std::int64_t>();
        e.timestampFraction = in.take<double>();
        e.duration = in.take<double>();
        e.status = in.take<std::int32_t>();
        e.kind = in.take<std::uint8_t>() % 5;
        e.pid = 100 + in.take<std::uint8_t>() % 3;
        e.threadId = in.take<std::uint8_t>() % 4;
        e.id = in.take<std::uint8_t>();
        const auto choice = in.take<std::uint8_t>();
        e.session = choice >> 4;
        std::strcpy(e.text, s_Texts[choice % 4]);
        std::strcpy(e.address, s_Addresses[choice / 4 % 4]);
        records.push_back(e);
    }

    t.model.loadRecords(records);
    t.model.setCollapseSameCommands(options & 1);
    t.model.setOnlyErrors(options & 2);
    ModelFilters filters;
    if (options & 4) {
        SingleFilter highlight;
        highlight.type = SingleFilter::HighlightCommand;
        highlight.text = QStringLiteral("viWrite");
        highlight.color = Qt::cyan;
        filters.add(highlight);
    }
    if (options & 8) {
        SingleFilter hide;
        hide.type = SingleFilter::ExcludeThread;
        hide.value = 1;
        filters.add(hide);
    }
    t.model.setFilter(filters);
    t.source.setGrouping(static_cast<LaneGrouping>((options >> 4) % 3));
    t.source.rebuild();

    TimelineViewport view;
    view.setWidth(width % 4000);
    view.show({viewStart, viewEnd});
    view.zoom(zoomAt, zoomBy);
    view.pan(panBy);
    const TimeRange extent = t.source.extent();
    if (options & 0x40)
        view.reveal(extent);
    if (options & 0x80)
        view.endAt(extent.end);

    CallList calls;
    t.source.calls(view.range(), static_cast<Nanoseconds>(view.pixelSize()), calls);
    TimelineLayout layout;
    layout.place(view, calls);
    for (const TimelineBar& bar : layout.bars())
        layout.barAt(layout.rectOf(bar).center());
    for (int lane = -1; lane <= t.source.laneCount(); ++lane)
        t.source.laneLabel(lane);
    for (int row = -1; row <= t.model.rowCount(); ++row)
        t.source.callOfRow(row);
    TimelineAxis::ticks(view, 40);
    return 0;
}
