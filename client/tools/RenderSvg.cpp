// Build-time helper: renders one SVG source to a PNG of a given size.
//
//   zv-render-svg <in.svg> <out.png> <width> <height> [#from=#to ...]
//
// Each optional #from=#to pair replaces a colour in the SVG text before it is
// drawn, so one drawing gives both the normal and the disabled look.
#include <QByteArray>
#include <QFile>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QSvgRenderer>

#include <cstdio>
#include <cstdlib>

int main(int argc, char* argv[]) {
    if (argc < 5) {
        std::fprintf(stderr, "usage: %s in.svg out.png width height [#from=#to ...]\n", argv[0]);
        return 2;
    }
    // No display is needed to draw into an image.
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);

    QFile input(QString::fromLocal8Bit(argv[1]));
    if (!input.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr, "cannot read %s\n", argv[1]);
        return 1;
    }
    QByteArray svg = input.readAll();
    for (int i = 5; i < argc; ++i) {
        const QList<QByteArray> pair = QByteArray(argv[i]).split('=');
        if (pair.size() != 2) {
            std::fprintf(stderr, "bad colour mapping %s\n", argv[i]);
            return 2;
        }
        svg.replace(pair[0], pair[1]);
        svg.replace(pair[0].toLower(), pair[1]);
    }

    const int width = std::atoi(argv[3]);
    const int height = std::atoi(argv[4]);
    QSvgRenderer renderer(svg);
    if (!renderer.isValid() || width <= 0 || height <= 0) {
        std::fprintf(stderr, "cannot render %s\n", argv[1]);
        return 1;
    }
    QImage image(width, height, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    renderer.render(&painter);
    painter.end();
    if (!image.save(QString::fromLocal8Bit(argv[2]), "PNG")) {
        std::fprintf(stderr, "cannot write %s\n", argv[2]);
        return 1;
    }
    return 0;
}
