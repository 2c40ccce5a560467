#include "CommandLine.h"

#include <QtTest>

using gui::CommandLine;

class TestCommandLine : public QObject
{
    Q_OBJECT

private slots:
    void parse_data()
    {
        // The arguments after the program name, separated by '|'.
        QTest::addColumn<QString>("arguments");
        QTest::addColumn<bool>("trace");
        QTest::addColumn<bool>("fileTrace");
        QTest::addColumn<QString>("fileName");

        auto row = [](const char* name, const char* arguments, bool trace, bool fileTrace, const char* fileName) {
            QTest::newRow(name) << QString::fromLatin1(arguments) << trace << fileTrace
                                << QString::fromLatin1(fileName);
        };
        row("nothing", "", false, false, "");
        row("-t", "-t", true, false, "");
        row("-ft alone keeps the restored name", "-ft", false, true, "");
        row("-ft with a name", "-ft|/tmp/a.log", false, true, "/tmp/a.log");
        row("-x is ignored", "-ft|-x|log.txt", false, true, "log.txt");
        row("second path wins", "-ft|a.log|b.log", false, true, "b.log");
        row("path before -ft is ignored", "/tmp/a.log|-ft", false, true, "");
        row("-t then -ft", "-t|-ft|x.log", true, true, "x.log");
        row("options are case-sensitive", "-T|-FT", false, false, "");
        row("-t after -ft is not a name", "-ft|-t", true, true, "");
        row("an empty argument is a name", "-ft|a.log|", false, true, "");
    }

    void parse()
    {
        QFETCH(QString, arguments);
        QStringList all {QStringLiteral("ZelVisaTraceTool")};
        if (!arguments.isEmpty())
            all += arguments.split(QLatin1Char('|'));
        const CommandLine commandLine = CommandLine::parse(all);
        QTEST(commandLine.startTracing, "trace");
        QTEST(commandLine.startFileTracing, "fileTrace");
        QTEST(commandLine.fileName, "fileName");
    }
};

QTEST_APPLESS_MAIN(TestCommandLine)
#include "tst_commandline.moc"
