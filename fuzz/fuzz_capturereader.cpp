// A capture file as anyone may hand it over (an exported table, a saved view, a trace log), read as
// "Open capture" reads it, a part at a time or the newest part. What was read is shown as the capture
// window shows it and exported as a table; without collapsing, that table read back and exported again
// must give the same text, since a table keeps every byte of every field. (With collapsing, a return
// that pairs with a collapsed row of calls takes the row's other calls with it, as the live view does,
// so a second export can hold fewer records; and a date before the year 1000 or after 9999 is written
// with a year of other than four digits, which no reader takes.)
#include "CaptureExport.h"
#include "CaptureReader.h"
#include "FuzzSupport.h"
#include "TraceChannelControl.h"

#include <QBuffer>

#include <algorithm>
#include <cstdlib>
#include <ctime>

namespace {

struct Fixture
{
    Fixture()
        : key(TestNames::segmentKey(3))
        , semaphore(TestNames::semaphoreName("fuzzcap"))
        , control(key, ZelTracer::s_HeaderSize + ZelTracer::s_SlotSize, semaphore)
        , model(nullptr, control, QString::fromStdString(TestNames::sharedRingName("fuzzcap")))
    { }
    ~Fixture()
    {
        TestNames::removeSegment(key);
        TestNames::unlinkSemaphore(semaphore);
    }
    static Fixture& instance()
    {
        FuzzSupport::application();
        static Fixture fixture;
        return fixture;
    }

    int key;
    std::string semaphore;
    ZelTracer::TraceChannelControl control;
    LiveTraceModel model; // never started: it shows loaded records only
};

QByteArray tableOf(LiveTraceModel const& model)
{
    QByteArray text;
    QBuffer out(&text);
    out.open(QIODevice::WriteOnly);
    capture::writeView(model, out, capture::Format::Csv);
    return text;
}

bool fourDigitYear(ZelTracer::FullEntry const& e)
{
    const std::time_t seconds = static_cast<std::time_t>(e.timestamp);
    std::tm local {};
    return localtime_r(&seconds, &local) && local.tm_year + 1900 >= 1000 && local.tm_year + 1900 <= 9999;
}

} // namespace

ZEL_FUZZ_SETUP(Fixture::instance())

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Fixture& f = Fixture::instance();
    FuzzSupport::Input in(data, size);
    const auto options = in.take<std::uint8_t>();
    const auto from = in.take<std::uint16_t>();
    QByteArray bytes = in.bytes();
    QBuffer file(&bytes);
    file.open(QIODevice::ReadOnly);
    capture::Capture capture;
    QString error;
    const std::optional<std::uint64_t> part = options & 1 ? std::optional<std::uint64_t>(from) : std::nullopt;
    if (!capture::CaptureReader::read(file, QStringLiteral("fuzz"), QDate(2024, 2, 29), capture, error, part))
        return 0;
    f.model.setCollapseSameCommands(options & 2);
    f.model.loadRecords(capture.records);
    for (int r = 0; r < f.model.rowCount() && r < 50; ++r) {
        for (int c = 0; c < LiveTraceModel::ColumnCount; ++c)
            f.model.data(f.model.index(r, c));
    }

    if ((options & 2) || !std::all_of(capture.records.begin(), capture.records.end(), fourDigitYear))
        return 0;
    const QByteArray table = tableOf(f.model);
    QByteArray copy = table;
    QBuffer again(&copy);
    again.open(QIODevice::ReadOnly);
    capture::Capture back;
    if (!capture::CaptureReader::read(again, QStringLiteral("again"), QDate(2024, 2, 29), back, error)) {
        std::fprintf(stderr, "an exported table was refused: %s\n", qPrintable(error));
        std::abort();
    }
    f.model.loadRecords(back.records);
    const QByteArray second = tableOf(f.model);
    if (second != table) {
        std::fprintf(stderr, "a table read back exports another text:\n%s\nthen:\n%s\n", table.constData(),
                     second.constData());
        std::abort();
    }
    return 0;
}
