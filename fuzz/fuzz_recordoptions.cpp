// zel-record's command line and its view filter file, as a script or a person may write them: the
// arguments (separated by NUL bytes, up to two NULs in a row) are read as the recorder reads them, and
// the rest of the input is a *.viewfilter file, loaded as the recorder loads it and applied to records.
#include "FuzzSupport.h"
#include "ModelFilters.h"
#include "RecordOptions.h"

#include <QBuffer>

#include <cstdlib>
#include <cstring>

ZEL_FUZZ_SETUP(FuzzSupport::application())

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzSupport::application();
    const QByteArray input(reinterpret_cast<const char*>(data), static_cast<int>(size));
    const int split = input.indexOf(QByteArray("\0\0", 2));
    QStringList arguments {QStringLiteral("zel-record")};
    for (QByteArray const& argument : input.left(split < 0 ? input.size() : split).split('\0'))
        arguments << QString::fromLocal8Bit(argument);
    const RecordCommandLine commandLine = RecordCommandLine::parse(arguments);
    if (commandLine.options) {
        const RecordOptions& o = *commandLine.options;
        const bool sane = !o.output.isNull() && o.duration >= 0 && o.duration <= 24 * 24 * 3600.0
            && (!o.message || o.message->toLocal8Bit().size() <= 255) && commandLine.error.isEmpty();
        if (!sane) {
            std::fprintf(stderr, "the recorder took options it must refuse\n");
            std::abort();
        }
    } else if (commandLine.exitCode != 0 && commandLine.error.isEmpty()) {
        std::fprintf(stderr, "a command line was refused without a word\n");
        std::abort();
    }

    if (split < 0)
        return 0;
    QByteArray file = input.mid(split + 2);
    QBuffer device(&file);
    device.open(QIODevice::ReadOnly);
    ModelFilters filters;
    if (!filters.loadViewFilterFile(device))
        return 0;
    ZelTracer::FullEntry e;
    std::memset(&e, 0, sizeof e);
    e.pid = 100;
    std::strcpy(e.address, "GPIB0::22::INSTR");
    std::strcpy(e.text, "viWrite(0x1, \"*IDN?\\n\", 6, 6)");
    filters.isFiltered(e);
    QColor color;
    filters.isHighlighted(e, &color);
    return 0;
}
