// A capture file from anywhere (a hostile, truncated or foreign database) through what opening it in
// a window does: the checks on open, the rows a view reads, the failed calls, the partner of a call,
// a pass over the rows with a condition as find makes one, and the facts of the summary.
#include "FuzzSupport.h"
#include "ZelcapFile.h"

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>

ZEL_FUZZ_SETUP(FuzzSupport::application<QCoreApplication>())

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzSupport::application<QCoreApplication>();
    static QTemporaryDir folder(QDir::tempPath() + QStringLiteral("/zelfuzz-XXXXXX"));
    const QString name = folder.filePath(QStringLiteral("input.zelcap"));
    for (const char* suffix : {"", "-wal", "-shm", "-journal"})
        QFile::remove(name + QLatin1String(suffix));
    {
        QFile file(name);
        if (!file.open(QIODevice::WriteOnly))
            return 0;
        file.write(reinterpret_cast<const char*>(data), static_cast<qint64>(size));
    }
    capture::ZelcapFile capture;
    QString error;
    if (!capture.open(name, error))
        return 0;
    const std::int64_t rows = capture.rowCount();
    std::vector<capture::StoredRow> read;
    capture.fetch(1, 64, read);
    capture.fetch(rows - 8, rows, read);
    for (capture::StoredRow const& row : read) {
        LiveTraceModel::Entry partner;
        capture.partnerOf(row, partner);
    }
    capture.nextFailed(0, true);
    capture.nextFailed(rows + 1, false);
    int visited = 0;
    capture.scan(
        1, rows, [&visited](capture::StoredRow const&) { return ++visited < 256; },
        "CAST(command AS TEXT) LIKE '%viread%' ESCAPE '\\' OR status IN (-1073807339)");
    capture.facts();
    return 0;
}
