#include "CommandLine.h"

#include <QtTest>

using gui::CommandLine;

class TestCommandLine : public QObject
{
    Q_OBJECT

private slots:
    void parse_data();
    void parse();
};

void TestCommandLine::parse_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<bool>("trace");
    QTest::addColumn<bool>("fileTrace");
    QTest::addColumn<QString>("fileName");

    const QString tool = QStringLiteral("ZelVisaTraceTool");
    QTest::newRow("nothing") << QStringList {tool} << false << false << QString();
    QTest::newRow("-t") << QStringList {tool, QStringLiteral("-t")} << true << false << QString();
    QTest::newRow("-ft alone keeps the restored name")
        << QStringList {tool, QStringLiteral("-ft")} << false << true << QString();
    QTest::newRow("-ft with a name") << QStringList {tool, QStringLiteral("-ft"), QStringLiteral("/tmp/a.log")} << false
                                     << true << QStringLiteral("/tmp/a.log");
    QTest::newRow("-x is ignored") << QStringList {tool, QStringLiteral("-ft"), QStringLiteral("-x"),
                                                   QStringLiteral("log.txt")}
                                   << false << true << QStringLiteral("log.txt");
    QTest::newRow("second path wins") << QStringList {tool, QStringLiteral("-ft"), QStringLiteral("a.log"),
                                                      QStringLiteral("b.log")}
                                      << false << true << QStringLiteral("b.log");
    QTest::newRow("path before -ft is ignored")
        << QStringList {tool, QStringLiteral("/tmp/a.log"), QStringLiteral("-ft")} << false << true << QString();
    QTest::newRow("-t then -ft") << QStringList {tool, QStringLiteral("-t"), QStringLiteral("-ft"),
                                                 QStringLiteral("x.log")}
                                 << true << true << QStringLiteral("x.log");
    QTest::newRow("options are case-sensitive")
        << QStringList {tool, QStringLiteral("-T"), QStringLiteral("-FT")} << false << false << QString();
    QTest::newRow("-t after -ft is not a name")
        << QStringList {tool, QStringLiteral("-ft"), QStringLiteral("-t")} << true << true << QString();
    QTest::newRow("an empty argument is a name")
        << QStringList {tool, QStringLiteral("-ft"), QStringLiteral("a.log"), QString()} << false << true << QString();
}

void TestCommandLine::parse()
{
    QFETCH(QStringList, arguments);
    const CommandLine commandLine = CommandLine::parse(arguments);
    QTEST(commandLine.startTracing, "trace");
    QTEST(commandLine.startFileTracing, "fileTrace");
    QTEST(commandLine.fileName, "fileName");
}

QTEST_APPLESS_MAIN(TestCommandLine)
#include "tst_commandline.moc"
