#include "LibraryConfig.h"

#include <string_view>

namespace zelvisa {

namespace {

std::string_view trimmed(std::string_view s)
{
    const auto first = s.find_first_not_of(" \t\r");
    if (first == std::string_view::npos)
        return {};
    return s.substr(first, s.find_last_not_of(" \t\r") - first + 1);
}

} // namespace

LibraryConfig parseLibraryConfig(const char* text, std::size_t size)
{
    LibraryConfig config;
    if (size > s_MaxConfigSize) {
        config.problem = "the file is larger than " + std::to_string(s_MaxConfigSize) + " bytes";
        return config;
    }
    std::string_view rest(text, size);
    for (std::size_t number = 1; !rest.empty(); ++number) {
        const std::size_t newline = rest.find('\n');
        const std::string_view line = trimmed(rest.substr(0, newline));
        rest = newline == std::string_view::npos ? std::string_view() : rest.substr(newline + 1);
        if (line.empty() || line.front() == '#')
            continue;
        const std::size_t equals = line.find('=');
        const std::string_view key = trimmed(line.substr(0, equals));
        const std::string_view value
            = equals == std::string_view::npos ? std::string_view() : trimmed(line.substr(equals + 1));
        std::string complaint;
        if (equals == std::string_view::npos)
            complaint = "expected 'library = PATH'";
        else if (key != "library")
            complaint = "unknown setting '" + std::string(key.substr(0, 40)) + "'";
        else if (value.empty() || value.find('\0') != std::string_view::npos)
            complaint = "'library' needs a file name";
        else
            config.library = std::string(value);
        if (!complaint.empty() && config.problem.empty())
            config.problem = "line " + std::to_string(number) + ": " + complaint;
    }
    return config;
}

} // namespace zelvisa
