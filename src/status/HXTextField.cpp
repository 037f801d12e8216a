#include "HXTextField.h"

#include "HXAnimationTiming.h"
#include "HXLabel.h"

#include <QFontMetricsF>
#include <QPainter>
#include <QPainterPath>
#include <QPointer>
#include <QTimer>

namespace {
// Where the word starts on the plate.
constexpr int kIndent = 10;
} // namespace

HXTextField::HXTextField(QWidget *parent)
    : QWidget(parent)
    , m_letters(new HXLabel(this))
    , m_realFont(font())
{
    m_letters->setShownLength(0); // nothing until told
    m_letters->setAlignment(Qt::AlignLeft);
    m_letters->setIndent(kIndent);
    m_letters->setAttribute(Qt::WA_TransparentForMouseEvents);
}

QString HXTextField::text() const
{
    return m_letters->shownText();
}

QColor HXTextField::textColor() const
{
    return m_letters->textColor();
}

void HXTextField::setTextColor(const QColor &color)
{
    m_letters->setTextColor(color);
}

void HXTextField::setRealString(const QString &word)
{
    m_realString = word;
    // The whole word is drawn once; typing only uncovers it.
    const int shown = m_letters->shownLength();
    m_letters->setText(word);
    m_letters->setShownLength(shown < 0 ? -1 : std::min(shown, int(word.size())));
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
    auto wordWidth = [this](const QFont &f) { return QFontMetrics(f).horizontalAdvance(m_realString); };
    // The word starts at the indent and keeps as much room at its end.
    const int room = width() - 2 * kIndent;
    if (wordWidth(fitted) > width() - 24) {
        while (wordWidth(fitted) > room && fitted.pointSizeF() > 1.0)
            fitted.setPointSizeF(fitted.pointSizeF() - 1.0);
    }
    m_letters->setFont(fitted);
    placeLetters();
}

void HXTextField::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    placeLetters();
}

// The embossing rule sets a line low in its label, so the lettering gets a
// label tall enough for the whole line and stands where its capitals are
// centred on the plate; above and below the plate it is empty.
void HXTextField::placeLetters()
{
    const QFontMetricsF metrics(m_letters->font());
    m_letters->resize(width(), std::max(height(), m_letters->sizeHint().height()));
    const qreal capsMiddle = m_letters->baseline() - metrics.capHeight() / 2.0;
    m_letters->move(0, qRound(height() / 2.0 - capsMiddle));
}

void HXTextField::resetOff()
{
    m_letters->setShownLength(0);
}

void HXTextField::resetOn()
{
    m_letters->setShownLength(-1);
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
    m_letters->setShownLength(shown);
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

void HXTextField::paintEvent(QPaintEvent *)
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
