#include "RecordOptions.h"

#include "ZelVersion.h"

#include <QCommandLineParser>
#include <QFileInfo>

#include <limits>

RecordCommandLine RecordCommandLine::parse(QStringList const& arguments)
{
    RecordCommandLine result;
    auto refuse = [&result](QString const& text) {
        result.exitCode = 1;
        result.error = text;
        return result;
    };
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Records the VISA calls of every traced process into a file, without a window.\n"
        "Stops after --duration or --count, or on Ctrl+C, SIGTERM or SIGHUP, and always writes a complete "
        "file.\nTracing is switched on if it is off, and then off again at the end unless another copy of "
        "the tool is running."));
    const QCommandLineOption help = parser.addHelpOption();
    const QCommandLineOption version = parser.addVersionOption();
    const QCommandLineOption output({QStringLiteral("o"), QStringLiteral("output")},
                                    QStringLiteral("The file to write (replaced if it exists)."),
                                    QStringLiteral("file"));
    const QCommandLineOption format(QStringLiteral("format"),
                                    QStringLiteral("zelcap (a capture file for long recordings, opened whole by the "
                                                   "window), csv, text (as \"Save view\") or timeline (Trace Event "
                                                   "JSON for Perfetto and chrome://tracing). Default: from the file "
                                                   "suffix (.zelcap, .csv, .json, else text)."),
                                    QStringLiteral("format"));
    const QCommandLineOption duration(QStringLiteral("duration"), QStringLiteral("Stop after this many seconds."),
                                      QStringLiteral("seconds"));
    const QCommandLineOption count(QStringLiteral("count"), QStringLiteral("Stop after this many rows."),
                                   QStringLiteral("n"));
    const QCommandLineOption viewFilter(QStringLiteral("view-filter"),
                                        QStringLiteral("Keep only the rows these view filters show (a *.viewfilter "
                                                       "file saved by the window)."),
                                        QStringLiteral("file"));
    const QCommandLineOption pid(QStringLiteral("pid"),
                                 QStringLiteral("Record filter: only this process (0 = every process). Set for "
                                                "every copy of the tool, as the window's record filter is."),
                                 QStringLiteral("pid"));
    const QCommandLineOption message(QStringLiteral("message"),
                                     QStringLiteral("Record filter: only calls whose text contains this."),
                                     QStringLiteral("text"));
    const QCommandLineOption quiet({QStringLiteral("q"), QStringLiteral("quiet")},
                                   QStringLiteral("No progress line and no summary."));
    // Private segment, semaphore and ring, so that tests never meet a user's tool.
    QCommandLineOption key(QStringLiteral("segment-key"), QStringLiteral("For tests."), QStringLiteral("key"));
    QCommandLineOption semaphore(QStringLiteral("segment-semaphore"), QStringLiteral("For tests."),
                                 QStringLiteral("name"));
    QCommandLineOption ring(QStringLiteral("ring"), QStringLiteral("For tests."), QStringLiteral("name"));
    for (QCommandLineOption* hidden : {&key, &semaphore, &ring})
        hidden->setFlags(QCommandLineOption::HiddenFromHelp);
    parser.addOptions({output, format, duration, count, viewFilter, pid, message, quiet, key, semaphore, ring});
    // As QCommandLineParser::process() answers, but without ending the program.
    if (!parser.parse(arguments))
        return refuse(parser.errorText());
    if (parser.isSet(help) || parser.isSet(QStringLiteral("help-all"))) {
        result.output = parser.helpText();
        return result;
    }
    if (parser.isSet(version)) {
        result.output = QStringLiteral("zel-record %1\n").arg(QLatin1String(ZelTracer::s_VersionString));
        return result;
    }

    RecordOptions o;
    if (!parser.isSet(output))
        return refuse(QStringLiteral("no output file; see --help"));
    o.output = parser.value(output);
    o.format = capture::formatForFileName(o.output);
    o.zelcap = QFileInfo(o.output).suffix().toLower() == QLatin1String("zelcap");
    if (parser.isSet(format)) {
        const auto f = capture::formatForName(parser.value(format));
        o.zelcap = parser.value(format) == QLatin1String("zelcap");
        if (!f && !o.zelcap)
            return refuse(
                QStringLiteral("unknown format \"%1\"; use zelcap, csv, text or timeline").arg(parser.value(format)));
        if (f)
            o.format = *f;
    }
    bool good = true;
    if (parser.isSet(duration)) {
        o.duration = parser.value(duration).toDouble(&good);
        // A timer counts milliseconds in an int: up to 24 days.
        good = good && o.duration > 0 && o.duration <= std::numeric_limits<int>::max() / 1000.0;
    }
    if (good && parser.isSet(count)) {
        o.count = parser.value(count).toULongLong(&good);
        good = good && o.count > 0;
    }
    if (good && parser.isSet(pid))
        o.pid = parser.value(pid).toUInt(&good);
    if (good && parser.isSet(key))
        o.key = parser.value(key).toInt(&good, 0);
    if (!good)
        return refuse(QStringLiteral("--duration (at most 24 days), --count, --pid and --segment-key take positive "
                                     "numbers"));
    if (parser.isSet(message)) {
        o.message = parser.value(message);
        if (o.message->toLocal8Bit().size() > 255)
            return refuse(QStringLiteral("--message takes at most 255 characters"));
    }
    o.viewFilter = parser.value(viewFilter);
    o.quiet = parser.isSet(quiet);
    if (parser.isSet(semaphore))
        o.semaphore = parser.value(semaphore).toStdString();
    if (parser.isSet(ring))
        o.ring = parser.value(ring);
    result.options = o;
    return result;
}
