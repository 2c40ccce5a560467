#include <QtTest>

// What `cmake --install` puts on a desktop system, and whether the desktop's own validators accept
// the desktop entry and the AppStream data.
class TestPackaging : public QObject
{
    Q_OBJECT

private slots:
    void validators_data()
    {
        QTest::addColumn<QString>("validator");
        QTest::addColumn<QStringList>("arguments");
        const QString dir = QStringLiteral(ZEL_PACKAGING_DIR "/");
        QTest::newRow("desktop entry") << "desktop-file-validate"
                                       << QStringList {dir + QStringLiteral("com.zelbrook.ZelVisaTraceTool.desktop")};
        QTest::newRow("AppStream metainfo")
            << "appstreamcli"
            << QStringList {QStringLiteral("validate"), QStringLiteral("--no-net"),
                            dir + QStringLiteral("com.zelbrook.ZelVisaTraceTool.metainfo.xml")};
    }
    void validators()
    {
        QFETCH(QString, validator);
        QFETCH(QStringList, arguments);
        if (QStandardPaths::findExecutable(validator).isEmpty())
            QSKIP("the validator is not installed (scripts/install-deps.sh installs it)");
        QProcess p;
        p.start(validator, arguments);
        QVERIFY(p.waitForFinished(60000));
        QVERIFY2(p.exitCode() == 0, QByteArray(p.readAllStandardOutput() + p.readAllStandardError()).constData());
    }

    void installLayout()
    {
        QTemporaryDir prefix;
        QProcess p;
        p.start(
            QStringLiteral(ZEL_CMAKE),
            {QStringLiteral("--install"), QStringLiteral(ZEL_BINARY_DIR), QStringLiteral("--prefix"), prefix.path()});
        QVERIFY(p.waitForFinished(120000));
        QVERIFY2(p.exitCode() == 0, p.readAllStandardError().constData());
        QStringList files;
        QDirIterator it(prefix.path(), QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString file = QDir(prefix.path()).relativeFilePath(it.next());
            if (file.startsWith(QLatin1String("bin/")) || file.startsWith(QLatin1String("share/")))
                files << file;
        }
        files.sort();
        QStringList expected {QStringLiteral("bin/ZelVisaTraceTool"),
                              QStringLiteral("bin/zel-record"),
                              QStringLiteral("share/applications/com.zelbrook.ZelVisaTraceTool.desktop"),
                              QStringLiteral("share/man/man1/ZelVisaTraceTool.1.gz"),
                              QStringLiteral("share/man/man1/zel-record.1.gz"),
                              QStringLiteral("share/metainfo/com.zelbrook.ZelVisaTraceTool.metainfo.xml"),
                              QStringLiteral("share/icons/hicolor/scalable/apps/com.zelbrook.ZelVisaTraceTool.svg")};
        for (const int size : {16, 22, 24, 32, 48, 64, 128, 256})
            expected << QStringLiteral("share/icons/hicolor/%1x%1/apps/com.zelbrook.ZelVisaTraceTool.png").arg(size);
        expected.sort();
        QCOMPARE(files, expected);
        QCOMPARE(QImage(prefix.filePath(expected.filter(QStringLiteral("48x48")).value(0))).size(), QSize(48, 48));
    }
};

QTEST_GUILESS_MAIN(TestPackaging)
#include "tst_packaging.moc"
