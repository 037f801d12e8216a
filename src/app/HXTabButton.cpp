#include "HXTabButton.h"

#include "HXArtwork.h"
#include "HXKeyboardFocus.h"

#include <QPainter>

HXTabButton::HXTabButton(const QString &title, int tag, QWidget *parent)
    : QAbstractButton(parent)
    , m_tag(tag)
{
    setText(title);
    setCursor(Qt::PointingHandCursor);
    setFont(HXArtwork::technicalFont(12));
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    HXKeyboardFocus::track(this);
}

void HXTabButton::setImageName(const QString &name)
{
    m_imageName = name;
    update();
}

void HXTabButton::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    const bool pressed = m_imageName.contains(QLatin1String("Pressed"));
    // Held down, a button shows its pressed image, as pushing in would.
    QString image = m_imageName;
    if (isDown() && !pressed)
        image.replace(QLatin1String("Tab"), QLatin1String("TabPressed"));
    p.drawPixmap(rect(), HXArtwork::pixmap(image, size(), devicePixelRatioF()));
    p.setFont(font());
    // Shown tab in full white, the others at 70 %.
    p.setPen(pressed || isDown() ? QColor(255, 255, 255) : QColor::fromRgbF(1.0, 1.0, 1.0, 0.7));
    p.drawText(rect().adjusted(0, 0, 0, -3), Qt::AlignCenter, text());
    if (HXKeyboardFocus::shows(this)) {
        // The keyboard's mark, in the window's highlight colour, inside the
        // artwork's bevel.
        p.setRenderHint(QPainter::Antialiasing);
        p.setPen(QPen(QColor(0xf0, 0x8a, 0x24), 2));
        p.setBrush(Qt::NoBrush);
        p.drawRoundedRect(QRectF(rect()).adjusted(4, 4, -4, -7), 6, 6);
    }
}
