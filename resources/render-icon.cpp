// render-icon: draws an SVG icon into PNG files or into a multi-size .ico, at build time and for the
// committed icon set. Qt's own SVG renderer, so the build needs no other image tool.
//
//   render-icon png SOURCE.svg SIZE OUT.png
//   render-icon ico SOURCE.svg OUT.ico SIZE...      (sizes ascending; the first is what QPixmap loads)

#include <QFile>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QSvgRenderer>

#include <cstdio>

namespace {

QImage render(QSvgRenderer& svg, int size)
{
    QImage image(size, size, QImage::Format_ARGB32);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    svg.render(&painter);
    return image;
}

void put16(QByteArray& out, int v)
{
    out.append(static_cast<char>(v & 0xFF)).append(static_cast<char>((v >> 8) & 0xFF));
}

void put32(QByteArray& out, quint32 v)
{
    put16(out, static_cast<int>(v & 0xFFFF));
    put16(out, static_cast<int>(v >> 16));
}

// One icon image as the .ico format keeps it: a 32-bit bottom-up DIB with its height doubled,
// followed by the (unused, all clear) AND mask.
QByteArray dib(QImage const& image)
{
    const int n = image.width();
    const int maskStride = ((n + 31) / 32) * 4;
    QByteArray out;
    put32(out, 40);
    put32(out, static_cast<quint32>(n));
    put32(out, static_cast<quint32>(2 * n));
    put16(out, 1);
    put16(out, 32);
    put32(out, 0);
    put32(out, static_cast<quint32>(n * n * 4 + maskStride * n));
    put32(out, 0);
    put32(out, 0);
    put32(out, 0);
    put32(out, 0);
    for (int y = n - 1; y >= 0; --y) {
        const auto* line = reinterpret_cast<const QRgb*>(image.constScanLine(y));
        for (int x = 0; x < n; ++x) {
            out.append(static_cast<char>(qBlue(line[x]))).append(static_cast<char>(qGreen(line[x])));
            out.append(static_cast<char>(qRed(line[x]))).append(static_cast<char>(qAlpha(line[x])));
        }
    }
    out.append(QByteArray(maskStride * n, '\0'));
    return out;
}

QByteArray ico(QSvgRenderer& svg, QList<int> const& sizes)
{
    QByteArray head;
    QByteArray body;
    put16(head, 0);
    put16(head, 1);
    put16(head, sizes.size());
    quint32 offset = 6 + 16 * static_cast<quint32>(sizes.size());
    for (const int size : sizes) {
        const QByteArray image = dib(render(svg, size).convertToFormat(QImage::Format_ARGB32));
        head.append(static_cast<char>(size >= 256 ? 0 : size)).append(static_cast<char>(size >= 256 ? 0 : size));
        head.append('\0').append('\0');
        put16(head, 1);
        put16(head, 32);
        put32(head, static_cast<quint32>(image.size()));
        put32(head, offset);
        offset += static_cast<quint32>(image.size());
        body += image;
    }
    return head + body;
}

} // namespace

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    const QStringList args = QCoreApplication::arguments();
    if (args.size() < 5 || (args[1] != QLatin1String("png") && args[1] != QLatin1String("ico"))) {
        std::fprintf(stderr, "usage: render-icon png SOURCE.svg SIZE OUT.png | ico SOURCE.svg OUT.ico SIZE...\n");
        return 1;
    }
    QSvgRenderer svg(args[2]);
    if (!svg.isValid()) {
        std::fprintf(stderr, "render-icon: %s is not an SVG image\n", qUtf8Printable(args[2]));
        return 1;
    }
    if (args[1] == QLatin1String("png")) {
        const int size = args[3].toInt();
        if (size <= 0 || size > 1024 || !render(svg, size).save(args[4], "PNG")) {
            std::fprintf(stderr, "render-icon: cannot write %s\n", qUtf8Printable(args[4]));
            return 1;
        }
        return 0;
    }
    QList<int> sizes;
    for (int i = 4; i < args.size(); ++i)
        sizes << qBound(1, args[i].toInt(), 256);
    QFile out(args[3]);
    if (!out.open(QIODevice::WriteOnly | QIODevice::Truncate) || out.write(ico(svg, sizes)) < 0) {
        std::fprintf(stderr, "render-icon: cannot write %s\n", qUtf8Printable(args[3]));
        return 1;
    }
    return 0;
}
