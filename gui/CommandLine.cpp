#include "CommandLine.h"

namespace gui {

CommandLine CommandLine::parse(QStringList const& arguments)
{
    CommandLine result;
    for (int i = 0; i < arguments.size(); ++i) {
        QString const& argument = arguments[i];
        if (argument == QLatin1String("-t"))
            result.startTracing = true;
        else if (argument == QLatin1String("-ft"))
            result.startFileTracing = true;
        else if (result.startFileTracing && !argument.startsWith(QLatin1Char('-')))
            result.fileName = argument;
        else if (i > 0 && !argument.isEmpty() && !argument.startsWith(QLatin1Char('-')))
            result.captureFiles << argument;
    }
    return result;
}

} // namespace gui
