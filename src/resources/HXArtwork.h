#pragma once

#include <QFont>
#include <QImage>
#include <QPixmap>
#include <QString>

// The application's own artwork (SVG, drawn by the team) and fonts, shipped
// inside the program. Artwork is looked up by the names the interface uses,
// with or without a ".png" extension ("leftTab.png" is leftTab.svg), and
// rendered at the size and device pixel ratio asked for, so it stays crisp
// on HiDPI screens.
class HXArtwork
{
public:
    static bool exists(const QString &name);
    // A transparent pixmap of `size` device-independent pixels; null for an
    // unknown name.
    static QPixmap pixmap(const QString &name, const QSize &size, qreal devicePixelRatio = 1.0);
    static QImage image(const QString &name, const QSize &pixels);
    // The artwork's own size in device-independent pixels.
    static QSize naturalSize(const QString &name);

    // Registers the shipped fonts once; false if Qt refused them.
    static bool loadFonts();
    // Rounded display lettering (status words, titles).
    static QFont displayFont(qreal pointSize);
    // Narrow technical lettering (buttons, the version line).
    static QFont technicalFont(qreal pointSize, QFont::Weight weight = QFont::DemiBold);
};
