// Command texts and field values through every formatter of the view and the export.
#include "FuzzSupport.h"
#include "ValueFormat.h"

ZEL_FUZZ_SETUP(FuzzSupport::application())

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzSupport::application();
    FuzzSupport::Input in(data, size);
    const long seconds = in.take<std::int64_t>();
    const double fraction = in.take<double>();
    const double duration = in.take<double>();
    const int status = in.take<std::int32_t>();
    const QByteArray text = in.bytes();

    ValueFormat::timestamp2string(seconds, fraction);
    ValueFormat::duration2string(duration);
    ValueFormat::duration2string(fraction);
    ValueFormat::status2string(status);
    // The view decodes commands as Latin-1, the filters as UTF-8: both reach the formatter.
    ValueFormat::filterStrings(QString::fromLatin1(text));
    ValueFormat::filterStrings(QString::fromUtf8(text));
    return 0;
}
