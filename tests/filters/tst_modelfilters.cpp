#include "FilterTestSupport.h"
#include "ModelFilters.h"

#include <QtTest>

#include <cstring>
#include <limits>

using ZelTracer::FullEntry;
using F = SingleFilter;

Q_DECLARE_METATYPE(ModelFilters)

namespace {

FullEntry record(std::uint32_t pid, std::uint32_t thread, std::uint32_t session, const char* address, const char* text)
{
    FullEntry e;
    std::memset(&e, 0, sizeof e);
    e.pid = pid;
    e.threadId = thread;
    e.session = session;
    std::strncpy(e.address, address, sizeof e.address - 1);
    std::strncpy(e.text, text, sizeof e.text - 1);
    return e;
}

} // namespace

class TestModelFilters : public QObject
{
    Q_OBJECT

private slots:
    void isFiltered_data()
    {
        QTest::addColumn<ModelFilters>("set");
        // Whether the two records are hidden: pid 100 thread 7 session 3, then pid 200 thread 8 session 4.
        QTest::addColumn<QString>("hidden");
        QTest::newRow("no rules") << ModelFilters() << QStringLiteral("00");
        QTest::newRow("only highlights hide nothing")
            << rules({rule(F::HighlightProcess, 100)}) << QStringLiteral("00");
        QTest::newRow("include beats exclude")
            << rules({rule(F::IncludeProcess, 100), rule(F::ExcludeThread, 7)}) << QStringLiteral("01");
        QTest::newRow("exclude alone") << rules({rule(F::ExcludeThread, 7)}) << QStringLiteral("10");
        QTest::newRow("exclude command is a case-insensitive substring")
            << rules({rule(F::ExcludeCommand, 0, "viRead")}) << QStringLiteral("10");
        QTest::newRow("empty include command shows all") << rules({rule(F::IncludeCommand, 0)}) << QStringLiteral("00");
        QTest::newRow("address must match whole")
            << rules({rule(F::IncludeAddress, 0, "TCPIP::1")}) << QStringLiteral("11");
        QTest::newRow("address is case-sensitive")
            << rules({rule(F::IncludeAddress, 0, "tcpip::1::INSTR")}) << QStringLiteral("11");
        QTest::newRow("exact address") << rules({rule(F::ExcludeAddress, 0, "TCPIP::1::INSTR")})
                                       << QStringLiteral("10");
        QTest::newRow("address, not command")
            << rules({rule(F::ExcludeAddress, 0, "x = VIREAD(5)")}) << QStringLiteral("00");
        QTest::newRow("session") << rules({rule(F::IncludeSession, 3)}) << QStringLiteral("01");
        QTest::newRow("type outside the range matches nothing")
            << rules({rule(15, 7), rule(-1, 7)}) << QStringLiteral("00");
        QTest::newRow("the most negative type, as a file may hold")
            << rules({rule(std::numeric_limits<std::int32_t>::min(), 7)}) << QStringLiteral("00");
    }

    void isFiltered()
    {
        QFETCH(ModelFilters, set);
        const QString hidden = QString::number(set.isFiltered(record(100, 7, 3, "TCPIP::1::INSTR", "x = VIREAD(5)")))
            + QString::number(set.isFiltered(record(200, 8, 4, "GPIB0::1::INSTR", "viWrite")));
        QTEST(hidden, "hidden");
    }

    void firstMatchingHighlightWins()
    {
        const ModelFilters set
            = rules({rule(F::ExcludeThread, 7, "", Qt::black), rule(F::HighlightCommand, 0, "idn", Qt::red),
                     rule(F::HighlightThread, 7, "", Qt::green)});
        // The colour of each record, or the one passed in when it is not highlighted.
        auto colour = [&set](std::uint32_t thread, const char* text) {
            QColor color = Qt::blue;
            set.isHighlighted(record(1, thread, 0, "", text), &color);
            return color.name();
        };
        QCOMPARE(colour(7, "*IDN?") + colour(7, "*RST") + colour(8, "*RST"), QStringLiteral("#ff0000#00ff00#0000ff"));
        QVERIFY(set.isHighlighted(record(1, 7, 0, "", ""), nullptr)
                && !set.isHighlighted(record(1, 8, 0, "", ""), nullptr));
    }

    void eraseOfLastIncludeRestoresExcludes()
    {
        ModelFilters set = rules({rule(F::ExcludeThread, 7), rule(F::IncludeProcess, 1)});
        QVERIFY(set.showOnly && !set.isFiltered(record(1, 7, 0, "", "")));
        QVERIFY(!set.erase(1));
        QVERIFY(set.isFiltered(record(1, 7, 0, "", "")));
        set.clear();
        QVERIFY(!set.showOnly && set.filters.isEmpty());
    }

    void valueTexts_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<QString>("input");
        QTest::addColumn<QString>("value");
        QTest::addColumn<QByteArray>("description");
        auto row = [](const char* name, int type, QString input, QString value, const char* description) {
            QTest::newRow(name) << type << input << value << QByteArray(description);
        };
        row("number", 0, QStringLiteral("12"), QStringLiteral("12"), "Highlight thread id 12");
        row("minus one wraps", 0, QStringLiteral("-1"), QStringLiteral("4294967295"), "Highlight thread id 4294967295");
        row("trailing letters keep the old value", 6, QStringLiteral("12abc"), QStringLiteral("0"),
            "Include process id 0");
        row("beyond signed range keeps the old value", 12, QStringLiteral("4294967295"), QStringLiteral("0"),
            "Exclude session id 0");
        row("address text unchanged", 13, QStringLiteral(" a b "), QStringLiteral(" a b "),
            "Exclude address \" a b \"");
        const QString micro = QString::fromUtf8("\xC2\xB5s");
        row("command text in UTF-8", 9, micro, micro, "Include command \"\xC2\xB5s\"");
        row("unknown type", 15, QStringLiteral("5"), QString(), "");
    }

    void valueTexts()
    {
        QFETCH(int, type);
        QFETCH(QString, input);
        SingleFilter f;
        f.type = type;
        f.setValue(input);
        QTEST(f.getValue(), "value");
        QTEST(QByteArray::fromStdString(f.toString()), "description");
    }

    void fileBytes()
    {
        SingleFilter process = rule(F::HighlightProcess, 42, "ab", Qt::red);
        SingleFilter nullText = rule(0, 0, "", QColor(1, 2, 3, 4));
        nullText.text = QString();
        const ModelFilters set = rules({process, rule(F::IncludeCommand, 77), nullText});
        QBuffer buffer;
        buffer.open(QIODevice::WriteOnly);
        set.saveViewFilterFile(buffer);
        // Magic, version, count; per rule: value, text (byte length, UTF-16), type, colour (a byte, 1 for RGB;
        // then alpha, red, green, blue and padding, 16 bits each); then the show-only flag.
        // clang-format off
        const QByteArray expected = QByteArray::fromHex(
            "2906FAB1" "00000001" "00000003"
            "0000002A" "00000004" "00610062" "00000001" "01" "FFFF" "FFFF" "0000" "0000" "0000"  // process 42, "ab"
            "0000004D" "00000000" "00000009" "01" "FFFF" "0000" "FFFF" "FFFF" "0000"  // include command "", cyan
            "00000000" "FFFFFFFF" "00000000" "01" "0404" "0101" "0202" "0303" "0000"  // a null text, alpha 4
            "01");
        // clang-format on
        QCOMPARE(buffer.data().toHex(), expected.toHex());

        // Reading gives back every field, also those the rule's type does not use.
        QBuffer saved(&buffer.buffer());
        saved.open(QIODevice::ReadOnly);
        ModelFilters loaded;
        QVERIFY(loaded.loadViewFilterFile(saved));
        QVERIFY(loaded == set);
        QCOMPARE(loaded.filters[2].color.alpha(), 4);
    }

    void damagedFiles_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<bool>("loaded");
        QTest::addColumn<int>("rules");
        QTest::addColumn<bool>("showOnly");

        const QByteArray head = QByteArray::fromHex("2906FAB100000001");
        const QByteArray ruleBytes = QByteArray::fromHex("0000000700000000000000060100FF00FF00FF00FF0000");
        QTest::newRow("count 5, two rules present")
            << head + QByteArray::fromHex("00000005") + ruleBytes + ruleBytes << true << 2 << false;
        QTest::newRow("a count of two billion is refused whole")
            << head + QByteArray::fromHex("77359400") + ruleBytes << false << 1 << false;
        QTest::newRow("rule cut in the middle")
            << head + QByteArray::fromHex("00000002") + ruleBytes + ruleBytes.left(6) << true << 2 << false;
        QTest::newRow("huge string length")
            << head + QByteArray::fromHex("0000000100000001FFFFFFFE0041") << true << 1 << false;
        QTest::newRow("negative count") << head + QByteArray::fromHex("FFFFFFFF01") << true << 0 << true;
        QTest::newRow("wrong magic") << QByteArray::fromHex("2906FAB2000000010000000001") << false << 1 << false;
        QTest::newRow("version 2") << QByteArray::fromHex("2906FAB1000000020000000001") << false << 1 << false;
        QTest::newRow("empty file") << QByteArray() << false << 1 << false;
    }

    void damagedFiles()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(int, rules);
        // The set holds one rule before loading, so that a refused file visibly leaves it alone.
        ModelFilters set;
        set.add(SingleFilter());
        QBuffer buffer(&bytes);
        buffer.open(QIODevice::ReadOnly);
        QTEST(set.loadViewFilterFile(buffer), "loaded");
        QCOMPARE(set.filters.size(), rules);
        QTEST(set.showOnly, "showOnly");
        if (set.filters.size() > 0 && bytes.size() > 40)
            QCOMPARE(set.filters.first().type, 6);
    }
};

QTEST_GUILESS_MAIN(TestModelFilters)
#include "tst_modelfilters.moc"
