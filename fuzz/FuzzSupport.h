#pragma once

#include "TestNames.h"

#include <QApplication>
#include <QDir>
#include <QTemporaryDir>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

// What every target needs: an offscreen application (cells make pixmaps and fonts) of the given
// type, made once on a private settings store, and input bytes taken in order, reading as zero
// once they run out.
namespace FuzzSupport {

template<class App = QApplication, class... Extra> App& application(Extra... extra)
{
    static QTemporaryDir config(QDir::tempPath() + QStringLiteral("/zelfuzz-XXXXXX"));
    static int argc = 1;
    static char name[] = "zelfuzz";
    static char* argv[] = {name, nullptr};
    static std::unique_ptr<App> app = [&] {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        qputenv("XDG_CONFIG_HOME", config.path().toUtf8());
        return std::make_unique<App>(argc, argv, extra...);
    }();
    return *app;
}

class Input
{
public:
    Input(const std::uint8_t* data, std::size_t size)
        : data(data)
        , size(size)
    { }
    template<class T> T take()
    {
        T value {};
        const std::size_t n = std::min(sizeof value, size - pos);
        std::memcpy(&value, data + pos, n);
        pos += n;
        return value;
    }
    // The rest of the input, or at most max bytes of it.
    QByteArray bytes(std::size_t max = SIZE_MAX)
    {
        const std::size_t n = std::min(max, size - pos);
        QByteArray result(reinterpret_cast<const char*>(data + pos), static_cast<int>(n));
        pos += n;
        return result;
    }
    bool done() const { return pos >= size; }

private:
    const std::uint8_t* data;
    std::size_t size;
    std::size_t pos = 0;
};

} // namespace FuzzSupport

// Whatever a target makes once is made before the first input, so that it never counts as a leak
// of that input.
#define ZEL_FUZZ_SETUP(expression)                                                                                     \
    extern "C" int LLVMFuzzerInitialize(int*, char***)                                                                 \
    {                                                                                                                  \
        expression;                                                                                                    \
        return 0;                                                                                                      \
    }
