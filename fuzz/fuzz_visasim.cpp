// libvisa-sim's parsers with what programs and environments hand it: resource names, resource
// expressions, format directives, and the text viSScanf scans.
extern "C" {
#include "sim.h"
}

#include <cstdint>
#include <cstring>
#include <string>

namespace {

// An instrument session without a connection: enough for the buffer forms of formatted I/O.
ViSession session()
{
    static ViSession vi = [] {
        pthread_mutex_lock(&g_simMutex);
        SimObject* o = sim_new_object(SIM_INSTRUMENT, 0);
        pthread_mutex_unlock(&g_simMutex);
        return o ? o->id : 0;
    }();
    return vi;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // The input split at its first NUL: a name or expression, then a text.
    const std::string whole(reinterpret_cast<const char*>(data), size);
    const std::string first = whole.substr(0, whole.find('\0'));
    const std::string rest = first.size() < whole.size() ? whole.substr(first.size() + 1) : std::string();

    SimResource resource;
    sim_parse_resource(first.c_str(), &resource);
    sim_match_expression(first.c_str(), rest.c_str());
    for (const char* p = std::strchr(first.c_str(), '%'); p; p = std::strchr(p + 1, '%')) {
        SimDirective directive;
        sim_parse_directive(p, 0, &directive);
        sim_parse_directive(p, 1, &directive);
    }

    // Scanning an arbitrary text with formats whose arguments are known.
    int i = 0;
    unsigned u = 0;
    short h = 0;
    signed char c8 = 0;
    long long ll = 0;
    float f = 0;
    double d = 0;
    long double ld = 0;
    char s[64], c[4], set[64], t[64];
    const ViConstBuf text = reinterpret_cast<ViConstBuf>(rest.c_str());
    switch (first.empty() ? 0 : static_cast<unsigned char>(first[0]) % 3) {
    case 0:
        viSScanf(session(), text, "%d %i %u %5o %x %f %lf %Lf %hd %hhd %lld", &i, &i, &u, &u, &u, &f, &d, &ld, &h, &c8,
                 &ll);
        break;
    case 1:
        viSScanf(session(), text, "%63s %3c %63[a-z0-9:,] %63t", s, c, set, t);
        break;
    default:
        viSScanf(session(), text, "%*d,%63[^\n]%n", s);
    }
    return 0;
}
