#pragma once

#include "CaptureExport.h"
#include "CaptureReader.h"
#include "LiveTraceModel.h"
#include "TraceTestSupport.h"

#include <QBuffer>

#include <cstdlib>
#include <ctime>
#include <vector>

// Captures show local times; the golden files are written for UTC.
inline void useUtc()
{
    qputenv("TZ", "UTC");
    tzset();
}

// A known set of records that exercises every kind of row a capture holds: completed calls, a call
// and its return apart, three repeats that collapse, a failed call, a text with a tab, a newline, a
// quote, a backslash and a control byte, and an address with a Latin-1 letter.
inline std::vector<ZelTracer::FullEntry> knownRecords()
{
    using ZelTracer::FullEntry;
    std::vector<FullEntry> records;
    auto call = [&records](std::uint64_t id, std::uint32_t pid, const char* text, double duration, std::int32_t status,
                           bool withReturn = true) {
        FullEntry e = makeEntry(id, pid, 0, text);
        e.duration = 0;
        e.status = 0;
        records.push_back(e);
        if (withReturn) {
            e.kind = 1;
            e.duration = duration;
            e.status = status;
            e.timestampFraction = 0.5;
            records.push_back(e);
        }
    };
    call(1, 100, "viOpen(0x1, \"TCPIP0::10.0.0.5::INSTR\", 0, 2000, 0x37)", 0.0125, 0);
    call(2, 100, "viWrite(0x37, \"MEAS:VOLT?\\n\n\ta\"b\x01\", 14, 14)", 0.00025, 0);
    call(7, 200, "viRead(0x2, buf, 20)", 0, 0, false); // returns further down
    call(3, 100, "viRead(0x37, \"1.25\", 20)", 0.5, 0x3FFF0005);
    call(4, 100, "viRead(0x37, \"1.25\", 20)", 0.25, 0x3FFF0005);
    call(5, 100, "viRead(0x37, \"1.25\", 20)", 0.25, 0x3FFF0005);
    FullEntry back = makeEntry(7, 200, 1, "viRead(0x2, buf, 20)");
    back.duration = 2.0;
    std::strcpy(back.address, "ASRL/dev/ttyS\xE9::INSTR");
    records.push_back(back); // status VI_ERROR_TMO from makeEntry
    return records;
}

// The export of a model holding the records, in one format.
inline QByteArray exported(std::vector<ZelTracer::FullEntry> const& records, capture::Format format,
                           ZelTracer::TraceChannelControl& control, bool collapse = true)
{
    LiveTraceModel model(nullptr, control);
    model.setCollapseSameCommands(collapse);
    model.loadRecords(records);
    QBuffer out;
    out.open(QIODevice::WriteOnly);
    capture::writeView(model, out, format);
    return out.data();
}

// What the reader makes of bytes, or the reader's message.
inline std::vector<ZelTracer::FullEntry> readBack(QByteArray bytes, QString* error = nullptr)
{
    QBuffer in(&bytes);
    in.open(QIODevice::ReadOnly);
    capture::Capture capture;
    QString message;
    if (!capture::CaptureReader::read(in, QStringLiteral("capture"), QDate(2023, 11, 14), capture, message)) {
        if (error)
            *error = message;
        return {};
    }
    return capture.records;
}

// A table longer than a view: two collapsed rows of (s_MaxRecords + 50) / 2 calls each that never
// returned (ids 11 on), then a failed call, so that every record of the file has a known index.
inline QByteArray longTable()
{
    const auto half = static_cast<qulonglong>(capture::CaptureReader::s_MaxRecords + 50) / 2;
    auto collapsed = [](qulonglong lastId, qulonglong calls) -> QByteArray {
        return "\"0\",\"" + QByteArray::number(lastId)
            + "\",\"call\",\"2023-11-14 22:13:21.250\",\"1.5\",\"100\",\"101\",\"7\",\"A\",\"0\",\"0\","
              "\"VI_SUCCESS\",\""
            + QByteArray::number(calls) + "\",\"viWaitOnEvent(0x1)\"\r\n";
    };
    return QByteArray(capture::s_CsvHeader) + collapsed(10 + half, half) + collapsed(10 + 2 * half, half)
        + "\"0\",\"1\",\"completed\",\"2023-11-14 22:13:22.250\",\"1.5\",\"100\",\"101\",\"7\",\"A\",\"2\","
          "\"-1073807339\",\"VI_ERROR_TMO\",\"1\",\"viRead(0x1)\"\r\n";
}
