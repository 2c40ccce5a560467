// A *.viewfilter file through the load path the view filter dialog uses, then every rule shown,
// edited and matched against records, and the set written back and read again.
#include "FuzzSupport.h"
#include "ModelFilters.h"

#include <QBuffer>

#include <cstring>

namespace {

ZelTracer::FullEntry record(std::uint32_t n, const char* address, const char* text)
{
    ZelTracer::FullEntry e;
    std::memset(&e, 0, sizeof e);
    e.pid = 100 + n % 3;
    e.threadId = 7 + n % 2;
    e.session = n;
    std::strncpy(e.address, address, sizeof e.address - 1);
    std::strncpy(e.text, text, sizeof e.text - 1);
    return e;
}

} // namespace

ZEL_FUZZ_SETUP(FuzzSupport::application())

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzSupport::application();
    QByteArray file(reinterpret_cast<const char*>(data), static_cast<int>(size));
    QBuffer buffer(&file);
    buffer.open(QIODevice::ReadOnly);
    ModelFilters filters;
    if (filters.loadViewFilterFileChecked(buffer) != ModelFilters::LoadResult::Loaded)
        return 0;

    static const ZelTracer::FullEntry records[] = {
        record(0, "GPIB0::22::INSTR", "viWrite(\"*IDN?\\n\")"),
        record(1, "TCPIP::1", "viRead \xC3\xA4\xFF"),
        record(2, "", ""),
    };
    for (const ZelTracer::FullEntry& e : records) {
        QColor color;
        filters.isHighlighted(e, &color);
        filters.isFiltered(e);
        filters.testShow(e);
        filters.testHide(e);
    }
    filters.showOnlyActive();
    for (SingleFilter f : filters.filters) {
        const std::string shown = f.toString();
        QString::fromLatin1(shown.data(), static_cast<int>(shown.size()));
        f.setValue(f.getValue());
        f.showonly();
    }

    QByteArray saved;
    QBuffer out(&saved);
    out.open(QIODevice::WriteOnly);
    filters.saveViewFilterFile(out);
    out.close();
    out.open(QIODevice::ReadOnly);
    ModelFilters again;
    again.loadViewFilterFileChecked(out);
    return 0;
}
