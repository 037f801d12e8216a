#include "HXTextField.h"

#include "HXAnimationTiming.h"

#include <QPainter>
#include <QPainterPath>
#include <QPointer>
#include <QTimer>

HXTextField::HXTextField(QWidget *parent)
    : QLabel(parent)
    , m_realFont(font())
{
    setAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    setIndent(10);
}

void HXTextField::setRealString(const QString &word)
{
    m_realString = word;
    resetFontSize();
}

void HXTextField::setRealFont(const QFont &font)
{
    m_realFont = font;
    if (!m_realString.isEmpty())
        resetFontSize();
}

void HXTextField::resetFontSize()
{
    QFont fitted = m_realFont;
    setFont(fitted);
    auto wordWidth = [this](const QFont &f) { return QFontMetrics(f).horizontalAdvance(m_realString); };
    if (wordWidth(fitted) > width() - 24) {
        while (wordWidth(fitted) > width() && fitted.pointSizeF() > 1.0)
            fitted.setPointSizeF(fitted.pointSizeF() - 1.0);
        setFont(fitted);
    }
}

void HXTextField::resetOff()
{
    setText(QString());
}

void HXTextField::resetOn()
{
    setText(m_realString);
}

void HXTextField::animate()
{
    m_typing = true;
    typeNext(m_realString, 0);
}

void HXTextField::typeNext(const QString &word, int shown)
{
    if (m_realString != word) {
        m_typing = false;
        return; // a newer word took over
    }
    setText(word.left(shown));
    if (shown >= word.size()) {
        m_typing = false;
        return;
    }
    QPointer<HXTextField> self(this);
    QTimer::singleShot(HXAnimationTiming::milliseconds(100), this, [self, word, shown] {
        if (self)
            self->typeNext(word, shown + 1);
    });
}

void HXTextField::paintEvent(QPaintEvent *event)
{
    {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        const qreal w = width();
        const qreal h = height();
        QPainterPath plate;
        plate.moveTo(0, 0);
        plate.lineTo(0, h);
        plate.lineTo(3.5 * 0.25 * w, h);
        plate.lineTo(w, h * 2.0 / 3.0);
        plate.lineTo(w, 0);
        plate.closeSubpath();
        p.fillPath(plate, QColor::fromRgbF(0.1, 0.1, 0.5, 0.35));
    }
    QLabel::paintEvent(event);
}
