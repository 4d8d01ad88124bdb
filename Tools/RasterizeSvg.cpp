// Converts an SVG file to a PNG file during the build: kelvane-rasterize-svg SVG PNG PIXELS.

#include <QImage>
#include <QPainter>
#include <QSvgRenderer>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <sysexits.h>

namespace {

constexpr int mostPixels = 4096;

// Returns a square image with a transparent background, null when the file is not an SVG.
QImage drawn(const QString& file, int pixels) {
    QSvgRenderer drawing(file);
    if (!drawing.isValid())
        return {};
    QImage image(pixels, pixels, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    drawing.render(&painter);
    return image;
}

} // namespace

int main(int count, char** arguments) {
    if (count == 2 && arguments[1] == std::string_view("--version")) {
        std::puts("kelvane-rasterize-svg " KELVANE_VERSION);
        return EXIT_SUCCESS;
    }
    const int pixels = count == 4 ? std::atoi(arguments[3]) : 0;
    if (pixels < 1 || pixels > mostPixels) {
        std::fputs("usage: kelvane-rasterize-svg SVG PNG PIXELS\n", stderr);
        return EX_USAGE;
    }
    const QImage image = drawn(QString::fromLocal8Bit(arguments[1]), pixels);
    if (image.isNull()) {
        std::fprintf(stderr, "kelvane-rasterize-svg: %s cannot be read as SVG\n", arguments[1]);
        return EX_DATAERR;
    }
    if (!image.save(QString::fromLocal8Bit(arguments[2]), "PNG")) {
        std::fprintf(stderr, "kelvane-rasterize-svg: cannot write %s\n", arguments[2]);
        return EX_CANTCREAT;
    }
    return EXIT_SUCCESS;
}
