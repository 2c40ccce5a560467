#include "FilterTestSupport.h"
#include "ModelFilters.h"

#include <QtTest>

#include <climits>
#include <cstring>

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
    // Per record, whether it is hidden and the colour it is highlighted in: pid 100 thread 7 session 3
    // reading, then pid 200 thread 8 session 4 writing.
    void isFiltered_data()
    {
        QTest::addColumn<ModelFilters>("set");
        QTest::addColumn<QString>("shown");
        auto row = [](const char* name, const char* shown, ModelFilters set, int erased = -1) {
            if (erased >= 0)
                set.erase(erased);
            QTest::newRow(name) << set << QString::fromLatin1(shown);
        };
        row("no rules", "0 0", {});
        row("include beats exclude", "0 1", rules({rule(F::IncludeProcess, 100), rule(F::ExcludeThread, 7)}));
        row("exclude alone", "1 0", rules({rule(F::ExcludeThread, 7)}));
        row("exclude command is a case-insensitive substring", "1 0", rules({rule(F::ExcludeCommand, 0, "viRead")}));
        row("empty include command shows all", "0 0", rules({rule(F::IncludeCommand, 0)}));
        row("address must match whole", "1 1", rules({rule(F::IncludeAddress, 0, "TCPIP::1")}));
        row("address is case-sensitive", "1 1", rules({rule(F::IncludeAddress, 0, "tcpip::1::INSTR")}));
        row("exact address", "1 0", rules({rule(F::ExcludeAddress, 0, "TCPIP::1::INSTR")}));
        row("address, not command", "0 0", rules({rule(F::ExcludeAddress, 0, "x = VIREAD(5)")}));
        row("session", "0 1", rules({rule(F::IncludeSession, 3)}));
        row("type outside the range matches nothing", "0 0", rules({rule(15, 7), rule(-1, 7)}));
        row("the most negative type, as a file may hold", "0 0", rules({rule(INT32_MIN, 7)}));
        // Highlights neither hide nor show; excludes never colour.
        row("first matching highlight wins", "1#ff0000 0#00ff00",
            rules({rule(F::ExcludeThread, 7, "", Qt::black), rule(F::HighlightCommand, 0, "read", Qt::red),
                   rule(F::HighlightThread, 7, "", Qt::green), rule(F::HighlightSession, 4, "", Qt::green)}));
        row("erasing the last include restores the excludes", "1 0",
            rules({rule(F::ExcludeThread, 7), rule(F::IncludeProcess, 100)}), 1);
    }

    void isFiltered()
    {
        QFETCH(ModelFilters, set);
        QStringList shown;
        for (const FullEntry& r :
             {record(100, 7, 3, "TCPIP::1::INSTR", "x = VIREAD(5)"), record(200, 8, 4, "GPIB0::1::INSTR", "viWrite")}) {
            QColor color;
            shown << QString::number(set.isFiltered(r)) + (set.isHighlighted(r, &color) ? color.name() : QString());
        }
        QTEST(shown.join(QLatin1Char(' ')), "shown");
    }

    void valueTexts_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<QString>("input");
        QTest::addColumn<QString>("value");
        QTest::addColumn<QByteArray>("description");
        auto row = [](const char* name, int type, const char* input, const char* value, const char* description) {
            QTest::newRow(name) << type << QString::fromUtf8(input) << QString::fromUtf8(value)
                                << QByteArray(description);
        };
        row("number", 0, "12", "12", "Highlight thread id 12");
        row("minus one wraps", 0, "-1", "4294967295", "Highlight thread id 4294967295");
        row("trailing letters keep the old value", 6, "12abc", "0", "Include process id 0");
        row("beyond signed range keeps the old value", 12, "4294967295", "0", "Exclude session id 0");
        row("address text unchanged", 13, " a b ", " a b ", "Exclude address \" a b \"");
        row("command text in UTF-8", 9, "\xC2\xB5s", "\xC2\xB5s", "Include command \"\xC2\xB5s\"");
        row("unknown type", 15, "5", "", "");
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
    }

    // What a damaged file leaves: whether it was loaded, the types of the rules held then and show-only.
    void damagedFiles_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("outcome");
        const QByteArray head = "2906FAB100000001", rule = "0000000700000000000000060100FF00FF00FF00FF0000";
        auto row = [](const char* name, const QByteArray& hex, const char* outcome) {
            QTest::newRow(name) << QByteArray::fromHex(hex) << QString::fromLatin1(outcome);
        };
        row("count 5, two rules present", head + "00000005" + rule + rule, "loaded 6 6");
        row("rule cut in the middle", head + "00000002" + rule + rule.left(12), "loaded 6 0");
        row("huge string length", head + "0000000100000001FFFFFFFE0041", "loaded 0");
        row("negative count", head + "FFFFFFFF01", "loaded show-only");
        row("wrong magic", "2906FAB2000000010000000001", "refused 12");
        row("version 2", "2906FAB1000000020000000001", "refused 12");
        row("empty file", "", "refused 12");
    }

    void damagedFiles()
    {
        QFETCH(QByteArray, bytes);
        // The set holds a rule before loading, so that a refused file visibly leaves it alone.
        ModelFilters set = rules({rule(F::ExcludeSession, 9)});
        QBuffer buffer(&bytes);
        buffer.open(QIODevice::ReadOnly);
        QString outcome = QLatin1String(set.loadViewFilterFile(buffer) ? "loaded" : "refused");
        for (const SingleFilter& f : set.filters)
            outcome += QLatin1Char(' ') + QString::number(f.type);
        outcome += QLatin1String(set.showOnly ? " show-only" : "");
        QTEST(outcome, "outcome");
    }
};

QTEST_GUILESS_MAIN(TestModelFilters)
#include "tst_modelfilters.moc"
