#include "HXLabel.h"

#include "HXImageFilters.h"

#include <QLinearGradient>
#include <QPainter>
#include <QRadialGradient>

namespace {
constexpr int kScale = 3;
// The pipeline's constants; the label's radius and scale fields are kept for
// their observers but do not change the drawing.
constexpr double kHeightFieldRadius = 5.0;
constexpr double kShadedMaterialScale = 50.0;

// A soft black silhouette of the image, for the drop shadow.
QImage shadowOf(const QImage &image, double blur)
{
    QImage shadow(image.size(), QImage::Format_ARGB32_Premultiplied);
    shadow.fill(Qt::transparent);
    QPainter p(&shadow);
    p.drawImage(0, 0, image);
    p.setCompositionMode(QPainter::CompositionMode_SourceIn);
    p.fillRect(shadow.rect(), Qt::black);
    p.end();
    const int radius = int(std::ceil(blur * kScale));
    if (radius <= 0)
        return shadow;
    // A box blur, once across and once down.
    QImage blurred = shadow;
    for (int pass = 0; pass < 2; ++pass) {
        const QImage source = blurred;
        for (int y = 0; y < source.height(); ++y) {
            auto *out = reinterpret_cast<QRgb *>(blurred.scanLine(y));
            for (int x = 0; x < source.width(); ++x) {
                int sum = 0;
                int n = 0;
                for (int d = -radius; d <= radius; ++d) {
                    const int sx = pass == 0 ? x + d : x;
                    const int sy = pass == 0 ? y : y + d;
                    if (sx < 0 || sy < 0 || sx >= source.width() || sy >= source.height())
                        continue;
                    sum += qAlpha(reinterpret_cast<const QRgb *>(source.constScanLine(sy))[sx]);
                    ++n;
                }
                out[x] = qRgba(0, 0, 0, n ? sum / n : 0);
            }
        }
    }
    return blurred;
}
} // namespace

HXLabel::HXLabel(QWidget *parent)
    : QWidget(parent)
{
    setAttribute(Qt::WA_TranslucentBackground);
}

HXLabel::HXLabel(const QString &text, QWidget *parent)
    : HXLabel(parent)
{
    m_text = text;
}

void HXLabel::setText(const QString &text)
{
    if (text == m_text)
        return;
    m_text = text;
    reset();
}

void HXLabel::setFont(const QFont &font)
{
    QWidget::setFont(font);
    reset();
    updateGeometry();
}

#define HX_LABEL_SETTER(Setter, member, Type)                                                                \
    void HXLabel::Setter(Type value)                                                                         \
    {                                                                                                        \
        member = value;                                                                                      \
        reset();                                                                                             \
    }

HX_LABEL_SETTER(setGradientStartColor, m_gradientStartColor, const QColor &)
HX_LABEL_SETTER(setGradientStopColor, m_gradientStopColor, const QColor &)
HX_LABEL_SETTER(setGradientStartLocation, m_gradientStartLocation, double)
HX_LABEL_SETTER(setGradientStopLocation, m_gradientStopLocation, double)
HX_LABEL_SETTER(setGradientStyle, m_gradientStyle, int)
HX_LABEL_SETTER(setShadowColor, m_shadowColor, const QColor &)
HX_LABEL_SETTER(setShadowOffset, m_shadowOffset, const QPointF &)
HX_LABEL_SETTER(setShadowBlur, m_shadowBlur, double)
HX_LABEL_SETTER(setHeightMapRadius, m_heightMapRadius, double)
HX_LABEL_SETTER(setShadedMaterialScale, m_shadedMaterialScale, double)

#undef HX_LABEL_SETTER

void HXLabel::reset()
{
    m_maskImage.clear();
    m_textImage.clear();
    update();
}

QSize HXLabel::sizeHint() const
{
    const QFontMetrics metrics(font());
    return {metrics.horizontalAdvance(m_text) + 2 * metrics.averageCharWidth(), int(metrics.height() * 1.6)};
}

void HXLabel::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    // Every image is made for one size.
    m_shadeImage.clear();
    m_blackAndWhiteShadeImage.clear();
    reset();
}

QSize HXLabel::scaledSize() const
{
    return size() * kScale;
}

QImage HXLabel::makeMask() const
{
    QImage mask(scaledSize(), QImage::Format_Grayscale8);
    mask.fill(Qt::black);
    QFont big = font();
    big.setPointSizeF(font().pointSizeF() * kScale);
    QPainter p(&mask);
    p.setRenderHint(QPainter::TextAntialiasing);
    p.setFont(big);
    p.setPen(Qt::white);
    const QFontMetricsF metrics(big);
    const double textWidth = metrics.horizontalAdvance(m_text);
    const double textHeight = metrics.height();
    // The top of the text sits at (height - text height / 2) / 2.
    const double top = (mask.height() - textHeight / 2.0) / 2.0;
    p.drawText(QPointF((mask.width() - textWidth) / 2.0, top + metrics.ascent()), m_text);
    return mask;
}

QImage HXLabel::makeShade(const QColor &from, const QColor &to, double start, double stop) const
{
    QImage shade(scaledSize(), QImage::Format_ARGB32_Premultiplied);
    QPainter p(&shade);
    if (m_gradientStyle == 0) {
        // From the bottom edge up to the top edge.
        QLinearGradient gradient(0, shade.height(), 0, 0);
        gradient.setColorAt(start, from);
        gradient.setColorAt(stop, to);
        p.fillRect(shade.rect(), gradient);
    } else {
        shade.fill(Qt::black);
        QRadialGradient gradient(QPointF(shade.width() / 2.0, shade.height() / 2.0), shade.width() / 2.0);
        gradient.setColorAt(start, from);
        gradient.setColorAt(stop, to);
        p.fillRect(shade.rect(), gradient);
    }
    return shade;
}

void HXLabel::renderImages()
{
    if (size().isEmpty())
        return;
    if (m_maskImage.empty())
        m_maskImage.setImage(makeMask());
    if (m_shadeImage.empty())
        m_shadeImage.setImage(makeShade(QColor::fromRgbF(1, 1, 1, 1), QColor::fromRgbF(0, 0, 0, 1),
                                         m_gradientStartLocation, m_gradientStopLocation));
    if (m_blackAndWhiteShadeImage.empty())
        m_blackAndWhiteShadeImage.setImage(
            makeShade(QColor::fromRgbF(1, 1, 1, 1), QColor::fromRgbF(0.5, 0.5, 0.5, 1), 0.0, 1.0));
    if (m_textImage.empty()) {
        using namespace HXImageFilters;
        const QImage alpha = maskToAlpha(m_maskImage.image());
        const QImage height = heightFieldFromMask(alpha, kHeightFieldRadius);
        const QImage material = shadedMaterial(height, m_shadeImage.image(), kShadedMaterialScale);
        m_textImage.setImage(blendWithMask(m_blackAndWhiteShadeImage.image(), material, m_maskImage.image()));
        m_shadow = shadowOf(m_textImage.image(), m_shadowBlur);
    }
}

void HXLabel::paintEvent(QPaintEvent *)
{
    renderImages();
    if (m_textImage.empty())
        return;
    QPainter p(this);
    p.setRenderHint(QPainter::SmoothPixmapTransform);
    // The offset is in a y-up system: -1 is one point down.
    const QPointF shadow(m_shadowOffset.x(), -m_shadowOffset.y());
    p.drawImage(QRectF(rect()).translated(shadow), m_shadow);
    p.drawImage(QRectF(rect()), m_textImage.image());
}
