// What libzelvisa writes and reads on its own: command texts in the PyVISA backend's style,
// zelvisa.conf, the table of session addresses and the table of attributes.

#include "CommandText.h"
#include "LibraryConfig.h"
#include "SessionAddresses.h"
#include "VisaAttributes.h"

#include <QtTest>

#include <cstring>
#include <limits>

using namespace zelvisa;

class TestVisaText : public QObject
{
    Q_OBJECT

private slots:
    // Data as the PyVISA backend quotes it; a cut never splits an escape and ends in `..."`.
    void quoting_data()
    {
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<int>("share"); // -1: as much as fits
        QTest::addColumn<QString>("expected");
        QTest::newRow("printable") << QByteArray("*IDN?") << -1 << QStringLiteral("f(\"*IDN?\")");
        QTest::newRow("line ends and tabs") << QByteArray("a\r\n\tb") << -1 << QStringLiteral("f(\"a\\r\\n\\tb\")");
        QTest::newRow("quotes and backslashes")
            << QByteArray("-113,\"x\\y\"") << -1 << QStringLiteral("f(\"-113,\\\"x\\\\y\\\"\")");
        QTest::newRow("other bytes in lower-case hex")
            << QByteArray("\x00\x1f\x7f\x80\xff", 5) << -1 << QStringLiteral("f(\"\\x00\\x1f\\x7f\\x80\\xff\")");
        QTest::newRow("empty") << QByteArray() << -1 << QStringLiteral("f(\"\")");
        QTest::newRow("cut at the share") << QByteArray("abcdefgh") << 4 << QStringLiteral("f(\"abcd...\")");
        QTest::newRow("an escape is not split") << QByteArray("a\x01\x02", 3) << 4 << QStringLiteral("f(\"a...\")");
    }
    void quoting()
    {
        QFETCH(QByteArray, data);
        QFETCH(int, share);
        QFETCH(QString, expected);
        CommandText text;
        text.begin("f");
        if (share < 0)
            text.arg().bytes(data.constData(), static_cast<std::size_t>(data.size()));
        else
            text.arg().bytes(data.constData(), static_cast<std::size_t>(data.size()), static_cast<std::size_t>(share));
        QCOMPARE(QString::fromLatin1(text.end()), expected);
        QVERIFY(text.size() <= 959);
    }

    void argumentsAndNumbers()
    {
        CommandText text;
        text.begin("viOut64");
        text.arg().number(0);
        text.arg().number(std::numeric_limits<std::uint64_t>::max());
        text.arg().signedNumber(std::numeric_limits<std::int64_t>::min());
        text.arg().signedNumber(-1073807339);
        text.arg().hex(0);
        text.arg().hex(0xBFFF0015u, 8);
        text.arg().hex(5, 8);
        text.arg().literal("attribute=").literal("VI_ATTR_TMO_VALUE");
        text.arg().text(nullptr);
        text.arg().bytes(nullptr, 3);
        text.arg().text("a\n");
        QCOMPARE(QString::fromLatin1(text.end()),
                 QStringLiteral("viOut64(0, 18446744073709551615, -9223372036854775808, -1073807339, 0x0, 0xBFFF0015, "
                                "0x00000005, attribute=VI_ATTR_TMO_VALUE, NULL, NULL, \"a\\n\")"));
        // Begun again, it holds only the new text; too many arguments stop at the record's size.
        text.begin("viClear");
        QCOMPARE(QString::fromLatin1(text.end()), QStringLiteral("viClear()"));
        text.begin("g");
        for (int i = 0; i < 400; ++i)
            text.arg().number(12345);
        QCOMPARE(std::strlen(text.end()), std::size_t(959));
        QVERIFY(QByteArray(text.c_str()).endsWith(')'));
        // Data that does not fit leaves room for the arguments after it.
        text.begin("viRead");
        text.arg().number(2);
        text.arg().bytes(QByteArray(5000, 'x').constData(), 5000);
        text.arg().number(4294967295u);
        text.arg().number(4294967295u);
        const QByteArray cut = text.end();
        QVERIFY2(cut.startsWith("viRead(2, \"xxxxxxxx") && cut.endsWith("xx...\", 4294967295, 4294967295)"),
                 cut.constData());
        QVERIFY(cut.size() > 900);
    }

    void configuration_data()
    {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QString>("library");
        QTest::addColumn<QString>("problem");
        QTest::newRow("one setting") << QByteArray("library = /opt/x/libvisa.so\n") << "/opt/x/libvisa.so"
                                     << "";
        QTest::newRow("no line end, spaces and carriage returns")
            << QByteArray("  library=/a b/libvisa.so \r") << "/a b/libvisa.so"
            << "";
        QTest::newRow("comments and blank lines") << QByteArray("# library = /no\n\n\t\nlibrary = /yes\n") << "/yes"
                                                  << "";
        QTest::newRow("the last one counts") << QByteArray("library = /first\nlibrary = /second\n") << "/second"
                                             << "";
        QTest::newRow("empty file") << QByteArray() << ""
                                    << "";
        QTest::newRow("unknown setting, the first problem reported")
            << QByteArray("colour = red\nsize = 3\nlibrary = /x\n") << "/x"
            << "line 1: unknown setting 'colour'";
        QTest::newRow("no equals sign") << QByteArray("\nlibrary /x\n") << ""
                                        << "line 2: expected 'library = PATH'";
        QTest::newRow("no file name") << QByteArray("library =\n") << ""
                                      << "line 1: 'library' needs a file name";
        QTest::newRow("a NUL inside") << QByteArray("library = /a\0b\n", 15) << ""
                                      << "line 1: 'library' needs a file name";
        QTest::newRow("too large") << QByteArray(s_MaxConfigSize + 1, '#') << ""
                                   << "the file is larger than 65536 bytes";
    }
    void configuration()
    {
        QFETCH(QByteArray, file);
        QFETCH(QString, library);
        QFETCH(QString, problem);
        const LibraryConfig config = parseLibraryConfig(file.constData(), static_cast<std::size_t>(file.size()));
        QCOMPARE(QString::fromStdString(config.library), library);
        QCOMPARE(QString::fromStdString(config.problem), problem);
    }

    // Sessions that share a place in the table (their numbers differ by its size) are all found
    // after any of them is removed; closing a resource manager forgets what was opened from it.
    void sessionAddresses()
    {
        auto table = std::make_unique<SessionAddresses>();
        auto address = [&](std::uint32_t session) {
            char out[SessionAddresses::s_AddressSize];
            table->get(session, out);
            return QString::fromLatin1(out);
        };
        const std::uint32_t size = SessionAddresses::s_Capacity;
        table->set(1, "RM", 1);
        table->set(2, "GPIB0::1::INSTR", 1);
        table->set(2 + size, "GPIB0::2::INSTR", 7);
        table->set(2 + 2 * size, "GPIB0::3::INSTR", 1);
        table->set(3, QByteArray(300, 'a').constData(), 7);
        QCOMPARE(address(3), QString(131, QLatin1Char('a')));
        table->remove(2 + size);
        QCOMPARE(address(2), QStringLiteral("GPIB0::1::INSTR"));
        QCOMPARE(address(2 + 2 * size), QStringLiteral("GPIB0::3::INSTR"));
        QCOMPARE(address(2 + size), QString());
        table->set(2, "GPIB0::4::INSTR", 1);
        QCOMPARE(address(2), QStringLiteral("GPIB0::4::INSTR"));
        table->remove(1);
        QCOMPARE(address(1) + address(2) + address(2 + 2 * size), QString());
        QCOMPARE(address(3), QString(131, QLatin1Char('a')));
        // A full table keeps what it has and records the rest without an address.
        for (std::uint32_t s = 100; s < 100 + 2 * size; ++s)
            table->set(s, "X", 0);
        QCOMPARE(address(100), QStringLiteral("X"));
        QCOMPARE(address(99 + 2 * size), QString());
        table->remove(0);
        QCOMPARE(address(100), QString());
        QCOMPARE(address(3), QString(131, QLatin1Char('a')));
    }

    void attributes()
    {
        unsigned count = 0;
        const ZelVisaAttribute* all = zelvisa_attributes(&count);
        QVERIFY(count > 150);
        for (unsigned i = 1; i < count; ++i)
            QVERIFY2(all[i - 1].id < all[i].id, all[i].name);
        for (unsigned i = 0; i < count; ++i)
            QCOMPARE(zelvisa_attribute(all[i].id), &all[i]);
        QCOMPARE(zelvisa_attribute(0x3FFF7777u), nullptr);
        struct Known
        {
            ViAttr id;
            const char* name;
            unsigned size;
        };
        for (Known k :
             {Known {VI_ATTR_TMO_VALUE, "VI_ATTR_TMO_VALUE", 4}, Known {VI_ATTR_TERMCHAR, "VI_ATTR_TERMCHAR", 1},
              Known {VI_ATTR_TERMCHAR_EN, "VI_ATTR_TERMCHAR_EN", 2}, Known {VI_ATTR_USER_DATA, "VI_ATTR_USER_DATA", 8},
              Known {VI_ATTR_WIN_BASE_ADDR, "VI_ATTR_WIN_BASE_ADDR", 8},
              Known {VI_ATTR_RSRC_NAME, "VI_ATTR_RSRC_NAME", 0}, Known {VI_ATTR_STATUS, "VI_ATTR_STATUS", 4}}) {
            const ZelVisaAttribute* a = zelvisa_attribute(k.id);
            QVERIFY(a);
            QCOMPARE(a->name, k.name);
            QCOMPARE(zelvisa_value_size(a->kind), k.size);
        }
    }
};

QTEST_GUILESS_MAIN(TestVisaText)
#include "tst_visatext.moc"
