#include "FilterTestSupport.h"
#include "ModelFilters.h"

#include <QtTest>

#include <cstring>
#include <limits>

using ZelTracer::FullEntry;

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

SingleFilter rule(int type, const QString& value, QColor color = Qt::cyan)
{
    SingleFilter f;
    f.type = type;
    f.setValue(value);
    f.color = color;
    return f;
}

} // namespace

class TestModelFilters : public QObject
{
    Q_OBJECT

private slots:
    void isFiltered_data()
    {
        QTest::addColumn<ModelFilters>("set");
        QTest::addColumn<bool>("hiddenPid100Tid7");
        QTest::addColumn<bool>("hiddenPid200");

        using F = SingleFilter;
        QTest::newRow("no rules") << ModelFilters() << false << false;
        QTest::newRow("only highlights hide nothing")
            << rules({rule(F::HighlightProcess, QStringLiteral("100"))}) << false << false;
        QTest::newRow("include beats exclude")
            << rules({rule(F::IncludeProcess, QStringLiteral("100")), rule(F::ExcludeThread, QStringLiteral("7"))})
            << false << true;
        QTest::newRow("exclude alone") << rules({rule(F::ExcludeThread, QStringLiteral("7"))}) << true << false;
        QTest::newRow("exclude command is a case-insensitive substring")
            << rules({rule(F::ExcludeCommand, QStringLiteral("viRead"))}) << true << false;
        QTest::newRow("empty include command shows all")
            << rules({rule(F::IncludeCommand, QString())}) << false << false;
        QTest::newRow("address must match whole")
            << rules({rule(F::IncludeAddress, QStringLiteral("TCPIP::1"))}) << true << true;
        QTest::newRow("address is case-sensitive")
            << rules({rule(F::IncludeAddress, QStringLiteral("tcpip::1::INSTR"))}) << true << true;
        QTest::newRow("exact address") << rules({rule(F::ExcludeAddress, QStringLiteral("TCPIP::1::INSTR"))}) << true
                                       << false;
        QTest::newRow("session") << rules({rule(F::IncludeSession, QStringLiteral("3"))}) << false << true;
        QTest::newRow("type outside the range matches nothing")
            << rules({rule(15, QStringLiteral("7")), rule(-1, QStringLiteral("7"))}) << false << false;
        QTest::newRow("the most negative type, as a file may hold")
            << rules({rule(std::numeric_limits<std::int32_t>::min(), QStringLiteral("7"))}) << false << false;
    }

    void isFiltered()
    {
        QFETCH(ModelFilters, set);
        QFETCH(bool, hiddenPid100Tid7);
        QFETCH(bool, hiddenPid200);

        QCOMPARE(set.isFiltered(record(100, 7, 3, "TCPIP::1::INSTR", "x = VIREAD(5)")), hiddenPid100Tid7);
        QCOMPARE(set.isFiltered(record(200, 8, 4, "GPIB0::1::INSTR", "viWrite")), hiddenPid200);
    }

    void firstMatchingHighlightWins()
    {
        using F = SingleFilter;
        const ModelFilters set = rules({rule(F::ExcludeThread, QStringLiteral("7"), Qt::black),
                                        rule(F::HighlightCommand, QStringLiteral("idn"), Qt::red),
                                        rule(F::HighlightThread, QStringLiteral("7"), Qt::green)});
        QColor color;
        QVERIFY(set.isHighlighted(record(1, 7, 0, "", "*IDN?"), &color));
        QCOMPARE(color, QColor(Qt::red));
        QVERIFY(set.isHighlighted(record(1, 7, 0, "", "*RST"), &color));
        QCOMPARE(color, QColor(Qt::green));
        color = Qt::blue;
        QVERIFY(!set.isHighlighted(record(1, 8, 0, "", "*RST"), &color));
        QCOMPARE(color, QColor(Qt::blue));
        QVERIFY(set.isHighlighted(record(1, 7, 0, "", ""), nullptr));
    }

    void eraseOfLastIncludeRestoresExcludes()
    {
        using F = SingleFilter;
        ModelFilters set
            = rules({rule(F::ExcludeThread, QStringLiteral("7")), rule(F::IncludeProcess, QStringLiteral("1"))});
        QVERIFY(set.showOnly);
        QVERIFY(!set.isFiltered(record(1, 7, 0, "", "")));
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

        QTest::newRow("number") << 0 << QStringLiteral("12") << QStringLiteral("12")
                                << QByteArray("Highlight thread id 12");
        QTest::newRow("minus one wraps") << 0 << QStringLiteral("-1") << QStringLiteral("4294967295")
                                         << QByteArray("Highlight thread id 4294967295");
        QTest::newRow("trailing letters keep the old value")
            << 6 << QStringLiteral("12abc") << QStringLiteral("0") << QByteArray("Include process id 0");
        QTest::newRow("beyond signed range keeps the old value")
            << 12 << QStringLiteral("4294967295") << QStringLiteral("0") << QByteArray("Exclude session id 0");
        QTest::newRow("address text unchanged")
            << 13 << QStringLiteral(" a b ") << QStringLiteral(" a b ") << QByteArray("Exclude address \" a b \"");
        QTest::newRow("command text in UTF-8") << 9 << QString::fromUtf8("\xC2\xB5s") << QString::fromUtf8("\xC2\xB5s")
                                               << QByteArray("Include command \"\xC2\xB5s\"");
        QTest::newRow("unknown type") << 15 << QStringLiteral("5") << QString() << QByteArray();
    }

    void valueTexts()
    {
        QFETCH(int, type);
        QFETCH(QString, input);
        QFETCH(QString, value);
        QFETCH(QByteArray, description);

        SingleFilter f;
        f.type = type;
        f.setValue(input);
        QCOMPARE(f.getValue(), value);
        QCOMPARE(QByteArray::fromStdString(f.toString()), description);
    }

    void fileBytes()
    {
        ModelFilters set;
        SingleFilter process = rule(SingleFilter::HighlightProcess, QStringLiteral("42"), Qt::red);
        process.text = QStringLiteral("ab");
        set.add(process);
        SingleFilter includeAll;
        includeAll.type = SingleFilter::IncludeCommand;
        includeAll.value = 77;
        set.add(includeAll);
        SingleFilter nullText;
        nullText.text = QString();
        nullText.color = QColor(1, 2, 3, 4);
        set.add(nullText);

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
        QFETCH(bool, loaded);
        QFETCH(int, rules);
        QFETCH(bool, showOnly);

        // The set holds one rule before loading, so that a refused file visibly leaves it alone.
        ModelFilters set;
        set.add(SingleFilter());
        QBuffer buffer(&bytes);
        buffer.open(QIODevice::ReadOnly);
        QCOMPARE(set.loadViewFilterFile(buffer), loaded);
        QCOMPARE(set.filters.size(), rules);
        QCOMPARE(set.showOnly, showOnly);
        if (loaded && rules > 0 && bytes.size() > 40)
            QCOMPARE(set.filters.first().type, 6);
    }
};

QTEST_GUILESS_MAIN(TestModelFilters)
#include "tst_modelfilters.moc"
