#include "HXTestingButton.h"

#include "HXArtwork.h"

HXTestingButton::HXTestingButton(const QString &title, QWidget *parent)
    : QPushButton(title, parent)
{
    setFont(HXArtwork::technicalFont(11));
    setMinimumSize(128, 32);
    setCursor(Qt::PointingHandCursor);
    setAutoDefault(false);
    // Drawn like the tab buttons; the text colour stays the palette's. The
    // keyboard's mark, in the window's highlight colour, only while the
    // keyboard brought the focus here (see HXKeyboardFocus).
    setStyleSheet(QStringLiteral(
        "QPushButton { border: 1px solid #15181c; border-radius: 7px; padding: 0 14px;"
        " background: qlineargradient(x1:0, y1:0, x2:0, y2:1, stop:0 #4a525c, stop:1 #2c3238); }"
        "QPushButton:hover { background: qlineargradient(x1:0, y1:0, x2:0, y2:1, stop:0 #535c67, "
        "stop:1 #323840); }"
        "QPushButton:pressed { background: qlineargradient(x1:0, y1:0, x2:0, y2:1,"
        " stop:0 #16191d, stop:1 #23282e); border-bottom: 2px solid #f08a24; }"
        "QPushButton[keyboardFocus=\"true\"] { border: 2px solid #f08a24; }"));
}
