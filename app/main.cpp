#include "MainWindow.h"
#include "TraceApplication.h"

#include <memory>

int main(int argc, char** argv)
{
    Q_INIT_RESOURCE(icons);
    auto app = std::make_unique<TraceApplication>(argc, argv);
    auto window = std::make_unique<gui::MainWindow>(nullptr, *app);
    window->show();
    const int result = app->exec();
    window.reset();
    app.reset();
    return result;
}
