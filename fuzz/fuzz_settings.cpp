// The settings store as anyone may have edited it: the input is the store's file, read by the
// main window's and the view filter dialog's restore paths and by a quick filter's colour.
#include "MainWindow.h"
#include "TraceApplication.h"
#include "ViewFilterDialog.h"

#include "TestNames.h"

#include <QDir>
#include <QFile>
#include <QSettings>
#include <QTemporaryDir>

static void initIcons()
{
    Q_INIT_RESOURCE(icons);
}

namespace {

struct Fixture
{
    Fixture()
        : config(QDir::tempPath() + QStringLiteral("/zelfuzz-XXXXXX"))
        , key(TestNames::segmentKey(2))
        , semaphore(TestNames::semaphoreName("fuzzset"))
    {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        qputenv("XDG_CONFIG_HOME", config.path().toUtf8());
        initIcons();
        app = std::make_unique<TraceApplication>(
            argc, argv, TraceEndpoints {key, semaphore, QString::fromStdString(TestNames::sharedRingName("fuzzset"))});
        // Fonts and styles are loaded once, on the first window; that is no leak of any input.
        gui::MainWindow warmUp(nullptr, *app);
    }
    ~Fixture()
    {
        app.reset();
        TestNames::removeSegment(key);
        TestNames::unlinkSemaphore(semaphore);
    }
    static Fixture& instance()
    {
        static Fixture fixture;
        return fixture;
    }

    QTemporaryDir config;
    int key;
    std::string semaphore;
    int argc = 1;
    char name[8] = "zelfuzz";
    char* argv[2] = {name, nullptr};
    std::unique_ptr<TraceApplication> app;
    unsigned run = 0;
};

} // namespace

// Set up before the first input, so that nothing made once counts as a leak of that input.
extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    Fixture::instance();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Fixture& f = Fixture::instance();
    // A fresh application name per run: the settings cache then reads the new file for sure.
    QCoreApplication::setApplicationName(QStringLiteral("ZelFuzz%1").arg(++f.run));
    const QString file = QSettings().fileName();
    QDir().mkpath(QFileInfo(file).path());
    {
        QFile out(file);
        out.open(QIODevice::WriteOnly | QIODevice::Truncate);
        out.write(reinterpret_cast<const char*>(data), static_cast<qint64>(size));
    }
    {
        gui::MainWindow window(nullptr, *f.app);
        QMetaObject::invokeMethod(&window, "popupmenuTriggered", Q_ARG(int, 0));
        gui::ViewFilterDialog dialog(&window, f.app->getModel().getFilters());
    }
    f.app->getModel().setFilter(ModelFilters());
    QFile::remove(file);
    return 0;
}
