#include "CaptureFileWindow.h"
#include "CommandLine.h"
#include "MainWindow.h"
#include "TraceApplication.h"
#include "UnixSignalQuit.h"
#include "ZelVersion.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QIcon>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

// --help and --version answer on the terminal and end the program before the trace segment is even
// opened. Every other argument is left to the window, which walks them as it always has and ignores
// what it does not know.
void answerHelpOrVersion(int argc, char** argv)
{
    QStringList asked {QString::fromLocal8Bit(argv[0])};
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "--version") == 0)
            asked << QString::fromLatin1(argv[i]);
    }
    if (asked.size() == 1)
        return;
    QCoreApplication core(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("ZelVisaTraceTool"));
    QCoreApplication::setApplicationVersion(QLatin1String(ZelTracer::s_VersionString));
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Shows live every VISA call that traced processes make.\n\n"
        "  -t                Start tracing.\n"
        "  -ft [file]        Record every call to the log file (the file given, else the one last used).\n\n"
        "Ctrl+C, SIGTERM and SIGHUP close the window as its Close does; tracing stops when the last copy\n"
        "of the tool ends. zel-record(1) records without a window."));
    // Only the long forms: "-h" and "-v" have always been ignored, as every unknown argument is.
    const QCommandLineOption help(QStringLiteral("help"), QStringLiteral("Print this text and exit."));
    const QCommandLineOption version(QStringLiteral("version"), QStringLiteral("Print the version and exit."));
    parser.addOptions({help, version});
    parser.parse(asked);
    if (parser.isSet(version))
        std::printf("%s %s\n", "ZelVisaTraceTool", ZelTracer::s_VersionString);
    else
        std::fputs(qPrintable(parser.helpText()), stdout);
    std::exit(0);
}

} // namespace

int main(int argc, char** argv)
{
    answerHelpOrVersion(argc, argv);
    // Sharp icons and text at a display scale of 2: the icons come in several sizes and as vectors.
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QCoreApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);
    Q_INIT_RESOURCE(icons);
    auto app = std::make_unique<TraceApplication>(argc, argv);
    // Drawn from the vector source, so it stays sharp at any scale; the window's own icon is the one
    // its form names.
    QGuiApplication::setWindowIcon(QIcon(QStringLiteral(":/icons/app/zelvisa-trace-tool.svg")));
    QGuiApplication::setDesktopFileName(QStringLiteral("com.zelbrook.ZelVisaTraceTool"));
    auto window = std::make_unique<gui::MainWindow>(nullptr, *app);
    UnixSignalQuit signalQuit;
    QObject::connect(&signalQuit, &UnixSignalQuit::quitRequested, window.get(), &QWidget::close);
    window->show();
    // Captures named on the command line (a file manager's double click) open beside the live view.
    for (QString const& file : gui::CommandLine::parse(QCoreApplication::arguments()).captureFiles)
        gui::CaptureFileWindow::openAny(file, window.get());
    const int result = app->exec();
    window.reset();
    app.reset();
    return result;
}
