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

        const QString none;
        QTest::newRow("nothing") << none << false << false << none;
        QTest::newRow("-t") << QStringLiteral("-t") << true << false << none;
        QTest::newRow("-ft alone keeps the restored name") << QStringLiteral("-ft") << false << true << none;
        QTest::newRow("-ft with a name") << QStringLiteral("-ft|/tmp/a.log") << false << true
                                         << QStringLiteral("/tmp/a.log");
        QTest::newRow("-x is ignored") << QStringLiteral("-ft|-x|log.txt") << false << true
                                       << QStringLiteral("log.txt");
        QTest::newRow("second path wins")
            << QStringLiteral("-ft|a.log|b.log") << false << true << QStringLiteral("b.log");
        QTest::newRow("path before -ft is ignored") << QStringLiteral("/tmp/a.log|-ft") << false << true << none;
        QTest::newRow("-t then -ft") << QStringLiteral("-t|-ft|x.log") << true << true << QStringLiteral("x.log");
        QTest::newRow("options are case-sensitive") << QStringLiteral("-T|-FT") << false << false << none;
        QTest::newRow("-t after -ft is not a name") << QStringLiteral("-ft|-t") << true << true << none;
        QTest::newRow("an empty argument is a name") << QStringLiteral("-ft|a.log|") << false << true << none;
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
