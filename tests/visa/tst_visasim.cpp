// libvisa-sim in this process against zel-instrument: resource names, finding resources, attributes,
// timeouts that expire, locks between sessions, formatted I/O and a session closed under a reader.

#include "visa.h"

#include <QtTest>

#include <atomic>
#include <cstring>
#include <thread>

namespace {

QString name(QString const& port)
{
    return QStringLiteral("TCPIP0::127.0.0.1::%1::SOCKET").arg(port);
}

} // namespace

class TestVisaSim : public QObject
{
    Q_OBJECT

    QProcess instrument;
    QString port;
    ViSession rm = 0;

    ViSession open()
    {
        ViSession vi = 0;
        const ViStatus status = viOpen(rm, name(port).toLatin1().constData(), VI_NO_LOCK, 0, &vi);
        return status == VI_SUCCESS ? vi : 0;
    }

    static ViStatus send(ViSession vi, const char* line)
    {
        ViUInt32 count = 0;
        return viWrite(vi, reinterpret_cast<ViConstBuf>(line), static_cast<ViUInt32>(std::strlen(line)), &count);
    }

private slots:
    void initTestCase()
    {
        instrument.start(QStringLiteral(ZEL_INSTRUMENT), {QStringLiteral("--port"), QStringLiteral("0")});
        QVERIFY(instrument.waitForReadyRead(10000));
        port = QString::fromLatin1(instrument.readLine().trimmed().mid(13));
        QVERIFY(!port.isEmpty());
        QCOMPARE(viOpenDefaultRM(&rm), VI_SUCCESS);
    }
    void cleanupTestCase()
    {
        QCOMPARE(viClose(rm), VI_SUCCESS);
        QCOMPARE(viClose(rm), VI_ERROR_INV_OBJECT);
        instrument.kill();
        instrument.waitForFinished();
    }

    void resourceNames_data()
    {
        QTest::addColumn<QByteArray>("resource");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("canonical"); // with the board number
        const int found = VI_SUCCESS, absent = VI_ERROR_RSRC_NFOUND, invalid = VI_ERROR_INV_RSRC_NAME;
        QTest::newRow("canonical") << QByteArray("TCPIP0::127.0.0.1::5025::SOCKET") << found
                                   << "0 TCPIP0::127.0.0.1::5025::SOCKET";
        QTest::newRow("any case, no board")
            << QByteArray("tcpip::localhost::5025::socket") << found << "0 TCPIP0::localhost::5025::SOCKET";
        QTest::newRow("board 3, host name")
            << QByteArray("TCPIP3::bench-7.lab_a::80::SOCKET") << found << "3 TCPIP3::bench-7.lab_a::80::SOCKET";
        QTest::newRow("GPIB instrument, not simulated") << QByteArray("GPIB0::22::INSTR") << absent << "";
        QTest::newRow("VXI-11 instrument, not simulated")
            << QByteArray("TCPIP0::10.0.0.1::inst0::INSTR") << absent << "";
        QTest::newRow("serial port, not simulated") << QByteArray("ASRL1::INSTR") << absent << "";
        QTest::newRow("port 0") << QByteArray("TCPIP0::host::0::SOCKET") << invalid << "";
        QTest::newRow("port 65536") << QByteArray("TCPIP0::host::65536::SOCKET") << invalid << "";
        QTest::newRow("port not a number") << QByteArray("TCPIP0::host::12a::SOCKET") << invalid << "";
        QTest::newRow("empty host") << QByteArray("TCPIP0::::5025::SOCKET") << invalid << "";
        QTest::newRow("space in host") << QByteArray("TCPIP0::h st::5025::SOCKET") << invalid << "";
        QTest::newRow("part too many") << QByteArray("TCPIP0::host::5025::SOCKET::x") << invalid << "";
        QTest::newRow("board too large") << QByteArray("TCPIP70000::host::5025::SOCKET") << invalid << "";
        QTest::newRow("unknown interface") << QByteArray("FOO0::1::INSTR") << invalid << "";
        QTest::newRow("empty") << QByteArray("") << invalid << "";
        QTest::newRow("longer than a name can be")
            << "TCPIP0::" + QByteArray(300, 'h') + "::1::SOCKET" << invalid << "";
        QTest::newRow("as long as it can be, canonical one longer")
            << "TCPIP::" + QByteArray(255 - 18, 'h') + "::1::SOCKET" << invalid << "";
    }
    void resourceNames()
    {
        QFETCH(QByteArray, resource);
        QFETCH(int, status);
        QFETCH(QString, canonical);
        ViUInt16 type = 99, board = 99;
        ViChar rsrcClass[256] = "", expanded[256] = "", alias[256] = "x";
        QCOMPARE(viParseRsrcEx(rm, resource.constData(), &type, &board, rsrcClass, expanded, alias), status);
        QCOMPARE(viParseRsrc(rm, resource.constData(), &type, &board), status);
        if (status != VI_SUCCESS)
            return;
        QCOMPARE(QString::number(board) + QLatin1Char(' ') + QString::fromLatin1(expanded), canonical);
        QCOMPARE(type, ViUInt16(VI_INTF_TCPIP));
        QCOMPARE(rsrcClass, "SOCKET");
        QCOMPARE(alias, "");
        QCOMPARE(viParseRsrc(12345, resource.constData(), &type, &board), VI_ERROR_INV_OBJECT);
    }

    void findResources_data()
    {
        QTest::addColumn<QByteArray>("expression");
        QTest::addColumn<QString>("found"); // the names, or the status
        const QString all = QStringLiteral("TCPIP0::10.0.0.1::5025::SOCKET TCPIP1::bench::6000::SOCKET "
                                           "TCPIP0::10.0.0.2::5025::SOCKET");
        QTest::newRow("everything") << QByteArray("?*") << all;
        QTest::newRow("by class") << QByteArray("?*::SOCKET") << all;
        QTest::newRow("by board") << QByteArray("TCPIP0::?*")
                                  << "TCPIP0::10.0.0.1::5025::SOCKET TCPIP0::10.0.0.2::5025::SOCKET";
        QTest::newRow("ranges") << QByteArray("TCPIP[0-9]::10.0.0.[2-3]::?*") << "TCPIP0::10.0.0.2::5025::SOCKET";
        QTest::newRow("any case") << QByteArray("tcpip1?*") << "TCPIP1::bench::6000::SOCKET";
        QTest::newRow("negated set") << QByteArray("TCPIP[^0]::?*") << "TCPIP1::bench::6000::SOCKET";
        QTest::newRow("one or more") << QByteArray("TCP+IP1::b?*") << "TCPIP1::bench::6000::SOCKET";
        QTest::newRow("alternatives") << QByteArray("TCPIP0::10.0.0.2?*|TCPIP1?*")
                                      << "TCPIP1::bench::6000::SOCKET TCPIP0::10.0.0.2::5025::SOCKET";
        QTest::newRow("escaped") << QByteArray("\\?*") << QString::number(VI_ERROR_RSRC_NFOUND);
        QTest::newRow("nothing of the kind") << QByteArray("?*INSTR") << QString::number(VI_ERROR_RSRC_NFOUND);
        QTest::newRow("a search that would take forever")
            << QByteArray("?*?*?*?*?*?*?*?*?*?*?*?*?*?*?*?*?*?*?*?*X") << QString::number(VI_ERROR_RSRC_NFOUND);
        QTest::newRow("parentheses") << QByteArray("(TCPIP)?*") << QString::number(VI_ERROR_INV_EXPR);
        QTest::newRow("open set") << QByteArray("[abc") << QString::number(VI_ERROR_INV_EXPR);
        QTest::newRow("empty") << QByteArray() << QString::number(VI_ERROR_INV_EXPR);
        QTest::newRow("leading star") << QByteArray("*") << QString::number(VI_ERROR_INV_EXPR);
    }
    void findResources()
    {
        QFETCH(QByteArray, expression);
        QFETCH(QString, found);
        qputenv("ZELVISA_SIM_RESOURCES",
                "TCPIP0::10.0.0.1::5025::SOCKET;TCPIP1::bench::6000::SOCKET;bad name;;"
                "TCPIP0::10.0.0.2::5025::SOCKET");
        ViFindList list = 0;
        ViUInt32 count = 0;
        ViChar next[256] = "";
        const ViStatus status = viFindRsrc(rm, expression.constData(), &list, &count, next);
        qunsetenv("ZELVISA_SIM_RESOURCES");
        if (status != VI_SUCCESS) {
            QCOMPARE(QString::number(status), found);
            return;
        }
        QStringList names;
        for (ViUInt32 i = 0; i < count; ++i) {
            names << QString::fromLatin1(next);
            QCOMPARE(viFindNext(list, next), i + 1 < count ? VI_SUCCESS : VI_ERROR_RSRC_NFOUND);
        }
        QCOMPARE(names.join(QLatin1Char(' ')), found);
        QCOMPARE(viClose(list), VI_SUCCESS);
        QCOMPARE(viFindNext(list, next), VI_ERROR_INV_OBJECT);
    }

    void attributes()
    {
        const ViSession vi = open();
        QVERIFY(vi);
        ViUInt32 timeout = 0;
        QCOMPARE(viGetAttribute(vi, VI_ATTR_TMO_VALUE, &timeout), VI_SUCCESS);
        QCOMPARE(timeout, 2000u);
        QCOMPARE(viSetAttribute(vi, VI_ATTR_TMO_VALUE, 1234), VI_SUCCESS);
        QCOMPARE(viGetAttribute(vi, VI_ATTR_TMO_VALUE, &timeout), VI_SUCCESS);
        QCOMPARE(timeout, 1234u);
        // A value is written as wide as the attribute is, not wider.
        unsigned char bytes[8];
        std::memset(bytes, 0xA5, sizeof bytes);
        QCOMPARE(viGetAttribute(vi, VI_ATTR_TERMCHAR, bytes), VI_SUCCESS);
        QCOMPARE(QByteArray(reinterpret_cast<char*>(bytes), 3), QByteArray("\n\xA5\xA5"));
        QCOMPARE(viGetAttribute(vi, VI_ATTR_TERMCHAR_EN, bytes), VI_SUCCESS);
        QCOMPARE(QByteArray(reinterpret_cast<char*>(bytes), 3), QByteArray("\0\0\xA5", 3));
        QCOMPARE(viSetAttribute(vi, VI_ATTR_USER_DATA, 0x0123456789ABCDEFull), VI_SUCCESS);
        ViUInt64 user = 0;
        QCOMPARE(viGetAttribute(vi, VI_ATTR_USER_DATA, &user), VI_SUCCESS);
        QCOMPARE(user, 0x0123456789ABCDEFull);
        ViChar text[256];
        QCOMPARE(viGetAttribute(vi, VI_ATTR_RSRC_NAME, text), VI_SUCCESS);
        QCOMPARE(QString::fromLatin1(text), name(port));
        QCOMPARE(viGetAttribute(vi, VI_ATTR_RSRC_CLASS, text), VI_SUCCESS);
        QCOMPARE(text, "SOCKET");
        ViUInt16 number = 0;
        QCOMPARE(viGetAttribute(vi, VI_ATTR_TCPIP_PORT, &number), VI_SUCCESS);
        QCOMPARE(QString::number(number), port);
        QCOMPARE(viGetAttribute(rm, VI_ATTR_RSRC_MANF_NAME, text), VI_SUCCESS);
        QCOMPARE(text, "Zelbrook");
        QCOMPARE(viSetAttribute(vi, VI_ATTR_TERMCHAR, 0x100), VI_ERROR_NSUP_ATTR_STATE);
        QCOMPARE(viSetAttribute(vi, VI_ATTR_TERMCHAR_EN, 2), VI_ERROR_NSUP_ATTR_STATE);
        QCOMPARE(viSetAttribute(vi, VI_ATTR_RSRC_NAME, 0), VI_ERROR_ATTR_READONLY);
        QCOMPARE(viSetAttribute(vi, VI_ATTR_TCPIP_PORT, 1), VI_ERROR_ATTR_READONLY);
        QCOMPARE(viSetAttribute(vi, VI_ATTR_GPIB_PRIMARY_ADDR, 1), VI_ERROR_NSUP_ATTR);
        QCOMPARE(viGetAttribute(vi, 0x3FFF7777u, bytes), VI_ERROR_NSUP_ATTR);
        QCOMPARE(viGetAttribute(vi, VI_ATTR_TMO_VALUE, nullptr), VI_ERROR_INV_PARAMETER);
        QCOMPARE(viGetAttribute(99999, VI_ATTR_TMO_VALUE, &timeout), VI_ERROR_INV_OBJECT);
        ViChar description[256];
        QCOMPARE(viStatusDesc(vi, VI_ERROR_TMO, description), VI_SUCCESS);
        QCOMPARE(description, "Timeout expired before operation completed.");
        QCOMPARE(viStatusDesc(vi, 0x3FFF1234, description), VI_WARN_UNKNOWN_STATUS);
        QCOMPARE(viClose(vi), VI_SUCCESS);
    }

    // A read the instrument does not answer ends with VI_ERROR_TMO once the timeout has passed.
    void timeoutsExpire_data()
    {
        QTest::addColumn<int>("timeout");
        QTest::newRow("immediate") << int(VI_TMO_IMMEDIATE);
        QTest::newRow("250 ms") << 250;
    }
    void timeoutsExpire()
    {
        QFETCH(int, timeout);
        const ViSession vi = open();
        QVERIFY(vi);
        QCOMPARE(viSetAttribute(vi, VI_ATTR_TMO_VALUE, static_cast<ViAttrState>(timeout)), VI_SUCCESS);
        QCOMPARE(send(vi, "SIM:SILENT ON\n*IDN?\n"), VI_SUCCESS);
        unsigned char buffer[64];
        ViUInt32 count = 99;
        QElapsedTimer clock;
        clock.start();
        QCOMPARE(viRead(vi, buffer, sizeof buffer, &count), VI_ERROR_TMO);
        QVERIFY(clock.elapsed() >= timeout);
        QVERIFY(clock.elapsed() < 30000);
        QCOMPARE(count, 0u);
        QCOMPARE(viClose(vi), VI_SUCCESS);
    }

    void locks()
    {
        const ViSession a = open(), b = open();
        QVERIFY(a && b);
        ViChar key[256] = "";
        QCOMPARE(viUnlock(a), VI_ERROR_SESN_NLOCKED);
        QCOMPARE(viLock(a, VI_EXCLUSIVE_LOCK, 0, VI_NULL, VI_NULL), VI_SUCCESS);
        QCOMPARE(viLock(a, VI_EXCLUSIVE_LOCK, 0, VI_NULL, VI_NULL), VI_SUCCESS_NESTED_EXCLUSIVE);
        ViAccessMode state = 0;
        QCOMPARE(viGetAttribute(b, VI_ATTR_RSRC_LOCK_STATE, &state), VI_SUCCESS);
        QCOMPARE(state, ViAccessMode(VI_EXCLUSIVE_LOCK));
        QCOMPARE(send(b, "*CLS\n"), VI_ERROR_RSRC_LOCKED);
        QCOMPARE(send(a, "*CLS\n"), VI_SUCCESS);
        QElapsedTimer clock;
        clock.start();
        QCOMPARE(viLock(b, VI_EXCLUSIVE_LOCK, 100, VI_NULL, VI_NULL), VI_ERROR_TMO);
        QVERIFY(clock.elapsed() >= 100);
        QCOMPARE(viUnlock(a), VI_SUCCESS_NESTED_EXCLUSIVE);
        // A waiting lock is granted when the holder lets go, from whichever thread.
        std::thread release([a] { viUnlock(a); });
        QCOMPARE(viLock(b, VI_EXCLUSIVE_LOCK, 20000, VI_NULL, VI_NULL), VI_SUCCESS);
        release.join();
        QCOMPARE(viUnlock(b), VI_SUCCESS);
        // A shared lock admits the sessions that have its key.
        QCOMPARE(viLock(a, VI_SHARED_LOCK, 0, "bench", key), VI_SUCCESS);
        QCOMPARE(key, "bench");
        QCOMPARE(send(b, "*CLS\n"), VI_ERROR_RSRC_LOCKED);
        QCOMPARE(viLock(b, VI_SHARED_LOCK, 0, "other", key), VI_ERROR_TMO);
        QCOMPARE(viLock(b, VI_SHARED_LOCK, 0, "bench", key), VI_SUCCESS);
        QCOMPARE(send(b, "*CLS\n"), VI_SUCCESS);
        QCOMPARE(viLock(b, VI_EXCLUSIVE_LOCK, 0, VI_NULL, VI_NULL), VI_ERROR_TMO);
        QCOMPARE(viLock(a, 7, 0, VI_NULL, VI_NULL), VI_ERROR_INV_LOCK_TYPE);
        // Closing a session gives up its locks.
        QCOMPARE(viClose(a), VI_SUCCESS);
        QCOMPARE(viUnlock(b), VI_SUCCESS);
        QCOMPARE(viLock(b, VI_SHARED_LOCK, 0, VI_NULL, key), VI_SUCCESS);
        QVERIFY(QByteArray(key).startsWith("ZelSim"));
        QCOMPARE(viClose(b), VI_SUCCESS);
    }

    void formatting_data()
    {
        QTest::addColumn<QByteArray>("format");
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("text");
        QTest::newRow("width and precision") << QByteArray("%8.3f|%-5d|%+d|%05u|%x|%#o") << int(VI_SUCCESS)
                                             << QByteArray("   3.142|42   |+42|00042|2a|052");
        QTest::newRow("stars and sizes") << QByteArray("%*d|%.*s|%hhd|%lld|%c|%%") << int(VI_SUCCESS)
                                         << QByteArray("   42|ab|42|42|*|%");
        QTest::newRow("VISA array") << QByteArray("%,3d") << int(VI_ERROR_NSUP_FMT) << QByteArray();
        QTest::newRow("VISA block") << QByteArray("%b") << int(VI_ERROR_NSUP_FMT) << QByteArray();
        QTest::newRow("unknown conversion") << QByteArray("%k") << int(VI_ERROR_INV_FMT) << QByteArray();
        QTest::newRow("ends in the middle") << QByteArray("abc%-") << int(VI_ERROR_INV_FMT) << QByteArray();
        QTest::newRow("size that does not fit") << QByteArray("%Ld") << int(VI_ERROR_INV_FMT) << QByteArray();
        QTest::newRow("huge width") << QByteArray("%999999999d") << int(VI_ERROR_INV_FMT) << QByteArray();
        QTest::newRow("precision both star and digits")
            << QByteArray("%.*700000000000d") << int(VI_ERROR_INV_FMT) << QByteArray();
    }
    void formatting()
    {
        QFETCH(QByteArray, format);
        QFETCH(int, status);
        QFETCH(QByteArray, text);
        const ViSession vi = open();
        QVERIFY(vi);
        ViChar out[256] = "";
        // The same arguments for every row; a row's format takes those it names.
        QCOMPARE(format.startsWith("%8")
                     ? viSPrintf(vi, reinterpret_cast<ViPBuf>(out), format.constData(), 3.14159, 42, 42, 42u, 42u, 42u)
                     : viSPrintf(vi, reinterpret_cast<ViPBuf>(out), format.constData(), 5, 42, 2, "abc", 42, 42ll, '*'),
                 status);
        QCOMPARE(QByteArray(out), text);
        QCOMPARE(viClose(vi), VI_SUCCESS);
    }

    void scanning()
    {
        const ViSession vi = open();
        QVERIFY(vi);
        int i = 0, j = 0;
        unsigned u = 0;
        double d = 0;
        long double ld = 0;
        short h = 0;
        char word[16] = "", rest[32] = "", set[16] = "", c[3] = "";
        const char* input = "  -12 0x1F 7e-1 -3.5 077 word,tail set:abc! xyz";
        QCOMPARE(viSScanf(vi, reinterpret_cast<ViConstBuf>(input), "%d %i %lf %Lf %ho %15[^,],%4s %15[a-z:]%2c %31t",
                          &i, &j, &d, &ld, &h, word, rest, set, c, rest),
                 VI_SUCCESS);
        QCOMPARE(QString::asprintf("%d %d %.1f %.1Lf %d [%s] [%s] [%.2s] [%s]", i, j, d, ld, h, word, set, c, rest),
                 QStringLiteral("-12 31 0.7 -3.5 63 [word] [set:abc] [! ] [xyz]"));
        // A mismatch stops the scan: what was stored stays, the rest is left alone.
        i = j = 5;
        QCOMPARE(viSScanf(vi, reinterpret_cast<ViConstBuf>("1,x"), "%d,%d", &i, &j), VI_SUCCESS);
        QCOMPARE(i * 10 + j, 15);
        QCOMPARE(viSScanf(vi, reinterpret_cast<ViConstBuf>("12"), "%2u%*d%u", &u, &j), VI_SUCCESS);
        QCOMPARE(u, 12u);
        QCOMPARE(viSScanf(vi, reinterpret_cast<ViConstBuf>("1"), "%y", &i), VI_ERROR_NSUP_FMT);
        QCOMPARE(viSScanf(vi, reinterpret_cast<ViConstBuf>("1"), "%[abc", word), VI_ERROR_INV_FMT);
        QCOMPARE(viSScanf(99999, reinterpret_cast<ViConstBuf>("1"), "%d", &i), VI_ERROR_INV_OBJECT);
        QCOMPARE(viClose(vi), VI_SUCCESS);
    }

    // A session closed by one thread ends the read another thread is waiting in.
    void closedUnderAReader()
    {
        const ViSession vi = open();
        QVERIFY(vi);
        QCOMPARE(viSetAttribute(vi, VI_ATTR_TMO_VALUE, VI_TMO_INFINITE), VI_SUCCESS);
        QCOMPARE(send(vi, "SIM:SILENT ON\n*IDN?\n"), VI_SUCCESS);
        std::atomic<ViStatus> status {1};
        std::thread reader([&] {
            unsigned char buffer[16];
            ViUInt32 count = 0;
            status = viRead(vi, buffer, sizeof buffer, &count);
        });
        QCOMPARE(viClose(vi), VI_SUCCESS);
        reader.join();
        QVERIFY(status == VI_ERROR_INV_OBJECT || status == VI_ERROR_CONN_LOST);
    }
};

QTEST_GUILESS_MAIN(TestVisaSim)
#include "tst_visasim.moc"
