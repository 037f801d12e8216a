#include "HXArtwork.h"

#include <QFile>
#include <QFontDatabase>
#include <QPainter>
#include <QPixmapCache>
#include <QSvgRenderer>

namespace {
QString resourcePath(QString name)
{
    if (name.endsWith(QLatin1String(".png")) || name.endsWith(QLatin1String(".svg")))
        name.chop(4);
    return QStringLiteral(":/artwork/%1.svg").arg(name);
}
} // namespace

bool HXArtwork::exists(const QString &name)
{
    return QFile::exists(resourcePath(name));
}

QSize HXArtwork::naturalSize(const QString &name)
{
    QSvgRenderer renderer(resourcePath(name));
    return renderer.isValid() ? renderer.defaultSize() : QSize();
}

QImage HXArtwork::image(const QString &name, const QSize &pixels)
{
    QSvgRenderer renderer(resourcePath(name));
    if (!renderer.isValid() || pixels.isEmpty())
        return {};
    QImage image(pixels, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    renderer.render(&painter);
    return image;
}

QPixmap HXArtwork::pixmap(const QString &name, const QSize &size, qreal devicePixelRatio)
{
    const QSize pixels = (QSizeF(size) * devicePixelRatio).toSize();
    const QString key = QStringLiteral("hxartwork:%1:%2x%3").arg(name).arg(pixels.width()).arg(pixels.height());
    QPixmap cached;
    if (QPixmapCache::find(key, &cached))
        return cached;
    const QImage rendered = image(name, pixels);
    if (rendered.isNull())
        return {};
    QPixmap result = QPixmap::fromImage(rendered);
    result.setDevicePixelRatio(devicePixelRatio);
    QPixmapCache::insert(key, result);
    return result;
}

bool HXArtwork::loadFonts()
{
    static const bool loaded = [] {
        bool ok = true;
        for (const char *file : {":/fonts/Comfortaa-Bold.ttf", ":/fonts/Jura-SemiBold.otf", ":/fonts/Jura-Medium.otf"})
            ok = QFontDatabase::addApplicationFont(QString::fromLatin1(file)) >= 0 && ok;
        return ok;
    }();
    return loaded;
}

QFont HXArtwork::displayFont(qreal pointSize)
{
    loadFonts();
    QFont font(QStringLiteral("Comfortaa"));
    font.setPointSizeF(pointSize);
    font.setWeight(QFont::Bold);
    return font;
}

QFont HXArtwork::technicalFont(qreal pointSize, QFont::Weight weight)
{
    loadFonts();
    QFont font(QStringLiteral("Jura"));
    font.setPointSizeF(pointSize);
    font.setWeight(weight);
    return font;
}
