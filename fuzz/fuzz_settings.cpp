// The settings store as anyone may have edited it: the input is the store's file, read by the
// main window's and the view filter dialog's restore paths and by a quick filter's colour.
#include "FuzzSupport.h"
#include "MainWindow.h"
#include "TraceApplication.h"
#include "ViewFilterDialog.h"

#include <QFile>
#include <QSettings>

// Resources are registered outside any namespace.
static void initIcons()
{
    Q_INIT_RESOURCE(icons);
}

namespace {

struct Fixture
{
    Fixture()
        : key(TestNames::segmentKey(2))
        , semaphore(TestNames::semaphoreName("fuzzset"))
        , app(FuzzSupport::application<TraceApplication>(
              TraceEndpoints {key, semaphore, QString::fromStdString(TestNames::sharedRingName("fuzzset"))}))
    {
        initIcons();
        // Fonts and styles are loaded once, on the first window; that is no leak of any input.
        gui::MainWindow warmUp(nullptr, app);
    }
    ~Fixture()
    {
        TestNames::removeSegment(key);
        TestNames::unlinkSemaphore(semaphore);
    }
    static Fixture& instance()
    {
        static Fixture fixture;
        return fixture;
    }

    int key;
    std::string semaphore;
    TraceApplication& app;
    unsigned run = 0;
};

} // namespace

ZEL_FUZZ_SETUP(Fixture::instance())

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
        gui::MainWindow window(nullptr, f.app);
        QMetaObject::invokeMethod(&window, "popupmenuTriggered", Q_ARG(int, 0));
        gui::ViewFilterDialog dialog(&window, f.app.getModel().getFilters());
    }
    f.app.getModel().setFilter(ModelFilters());
    QFile::remove(file);
    return 0;
}
