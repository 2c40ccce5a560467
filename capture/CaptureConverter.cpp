#include "CaptureConverter.h"

#include "CaptureReader.h"
#include "RowStream.h"
#include "ZelVersion.h"
#include "ZelcapFormat.h"
#include "ZelcapWriter.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>

namespace capture {

bool convertToZelcap(QString const& source, QString const& target,
                     std::function<bool(qint64 done, qint64 total)> const& progress, QString& error)
{
    ZelcapWriter writer;
    if (!writer.create(target, error))
        return false;
    namespace fact = zelcap::fact;
    writer.setFact(fact::s_Version, QLatin1String(ZelTracer::s_VersionString));
    writer.setFact(fact::s_Source, QFileInfo(source).absoluteFilePath());
    RowStream rows(ModelFilters(),
                   [&writer](RowStream::Row const& row, RowStream::Entry const* call) { writer.write(row, call); });
    const qint64 size = QFileInfo(source).size();
    RecordSink sink;
    sink.record = [&rows](ZelTracer::FullEntry const& e) { rows.add(e); };
    sink.goOn = [&progress, size](qint64 done) { return !progress || progress(done, size); };
    const bool read = CaptureReader::stream(source, sink, error);
    rows.finish();
    const bool written = writer.finish();
    if (read && !written)
        error = QStringLiteral("Cannot write %1: %2").arg(target, writer.errorString());
    if (read && written)
        return true;
    for (const char* suffix : {"", "-wal", "-shm", "-journal"})
        QFile::remove(target + QLatin1String(suffix));
    return false;
}

} // namespace capture
