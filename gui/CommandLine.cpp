#include "CommandLine.h"

namespace gui {

CommandLine CommandLine::parse(QStringList const& arguments)
{
    CommandLine result;
    for (QString const& argument : arguments) {
        if (argument == QLatin1String("-t"))
            result.startTracing = true;
        else if (argument == QLatin1String("-ft"))
            result.startFileTracing = true;
        else if (result.startFileTracing && !argument.startsWith(QLatin1Char('-')))
            result.fileName = argument;
    }
    return result;
}

} // namespace gui
