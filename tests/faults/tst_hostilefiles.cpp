// A view filter file of more rules than anyone edits is refused by the dialog with a message; the
// largest accepted size loads, and a foreign file is still ignored without a word.
#include "ModelFilters.h"
#include "SettingsGuard.h"
#include "ViewFilterDialog.h"

#include <QApplication>
#include <QMessageBox>
#include <QTemporaryDir>
#include <QTimer>
#include <QtTest>

class TestHostileFiles : public QObject
{
    Q_OBJECT

private slots:
    void ruleCountIsBounded_data();
    void ruleCountIsBounded();
    void forgedSettingsValuesDropped_data();
    void forgedSettingsValuesDropped();

private:
    QTemporaryDir dir;
};

void TestHostileFiles::ruleCountIsBounded_data()
{
    QTest::addColumn<int>("rules");
    QTest::addColumn<bool>("foreign");
    QTest::addColumn<int>("loaded");
    QTest::addColumn<bool>("message");
    QTest::newRow("largest accepted set")
        << ModelFilters::s_MaxFileRules << false << ModelFilters::s_MaxFileRules << false;
    QTest::newRow("one rule too many") << ModelFilters::s_MaxFileRules + 1 << false << 1 << true;
    QTest::newRow("foreign file of many rules") << ModelFilters::s_MaxFileRules + 1 << true << 1 << false;
}

void TestHostileFiles::ruleCountIsBounded()
{
    QFETCH(int, rules);
    QFETCH(bool, foreign);
    QFETCH(int, loaded);
    QFETCH(bool, message);
    const QString path = dir.filePath(QStringLiteral("rules.viewfilter"));
    {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        QDataStream out(&file);
        out << (foreign ? qint32(0x12345678) : ModelFilters::s_FileMagic) << ModelFilters::s_FileVersion;
        out.setVersion(ModelFilters::s_StreamVersion);
        out << qint32(rules);
        SingleFilter rule;
        rule.type = SingleFilter::ExcludeCommand;
        rule.text = QStringLiteral("viRead");
        for (int i = 0; i < rules; ++i)
            out << rule;
        out << false;
    }
    ModelFilters before;
    before.add(SingleFilter());
    gui::ViewFilterDialog dialog(nullptr, before);
    QString shown;
    QTimer::singleShot(0, [&shown] {
        if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
            shown = box->text();
            box->accept();
        }
    });
    dialog.loadFile(path);
    QCOMPARE(dialog.viewFilters.filters.size(), loaded);
    QCOMPARE(shown.contains(QString::number(ModelFilters::s_MaxFileRules)), message);
}

void TestHostileFiles::forgedSettingsValuesDropped_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<bool>("kept");
    // A polygon of 0x7FFFFFFF points, as a settings file may claim one.
    QTest::newRow("forged polygon") << QByteArray("size=@Variant(\\0\\0\\0G\\x7f\\xff\\xff\\xff)") << false;
    QTest::newRow("escaped at sign") << QByteArray("size=\\x40Variant(\\0\\0\\0G\\x7f\\xff\\xff\\xff)") << false;
    QTest::newRow("quoted") << QByteArray("size=\"@Variant(\\0\\0\\0G\\x7f\\xff\\xff\\xff)\"") << false;
    QTest::newRow("colour") << QByteArray(
        "FilterColor0=@Variant(\\0\\0\\0\\x43\\x1\\xff\\xff\\xff\\xff\\0\\0\\0\\0\\0\\0)")
                            << true;
    QTest::newRow("plain size") << QByteArray("size=@Size(800 600)") << true;
}

void TestHostileFiles::forgedSettingsValuesDropped()
{
    QFETCH(QByteArray, line);
    QFETCH(bool, kept);
    const QString path = dir.filePath(QStringLiteral("store.conf"));
    {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write("[MainWindow]\n" + line + "\nPauseOnError=true\n");
    }
    gui::dropForeignVariants(path);
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray text = file.readAll();
    QCOMPARE(text.contains(line), kept);
    QVERIFY(text.contains("PauseOnError=true"));
}

int main(int argc, char** argv)
{
    // The dialog keeps its placement in the settings store: a private one, never the user's.
    QTemporaryDir config;
    qputenv("XDG_CONFIG_HOME", config.path().toUtf8());
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    TestHostileFiles test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_hostilefiles.moc"
