#include "HXLabel.h"

#include "HXImageFilters.h"

#include <QLinearGradient>
#include <QPainter>
#include <QRadialGradient>
#include <algorithm>
#include <cmath>
#include <vector>

namespace {
constexpr int kScale = 3;
// The pipeline's constants; the label's radius and scale fields are kept for
// their observers but do not change the drawing.
constexpr double kHeightFieldRadius = 5.0;
constexpr double kShadedMaterialScale = 50.0;

// The mean of each run of 2 * radius + 1 values along a line (those inside
// the image), as a running sum.
void boxBlurLine(const int *in, int *out, int count, int stride, int radius)
{
    int sum = 0;
    int n = 0;
    for (int i = 0; i < std::min(radius, count); ++i) {
        sum += in[i * stride];
        ++n;
    }
    for (int i = 0; i < count; ++i) {
        if (i + radius < count) {
            sum += in[(i + radius) * stride];
            ++n;
        }
        if (i - radius - 1 >= 0) {
            sum -= in[(i - radius - 1) * stride];
            --n;
        }
        out[i * stride] = sum / n;
    }
}

// A soft black silhouette of the image, for the drop shadow.
QImage shadowOf(const QImage &image, double blur)
{
    const QImage source = image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    const int w = source.width();
    const int h = source.height();
    std::vector<int> alpha(size_t(w) * size_t(h));
    for (int y = 0; y < h; ++y) {
        const auto *line = reinterpret_cast<const QRgb *>(source.constScanLine(y));
        for (int x = 0; x < w; ++x)
            alpha[size_t(y) * size_t(w) + size_t(x)] = qAlpha(line[x]);
    }
    const int radius = int(std::ceil(blur * kScale));
    if (radius > 0 && w > 0 && h > 0) {
        // A box blur, once across and once down.
        std::vector<int> across(alpha.size());
        for (int y = 0; y < h; ++y)
            boxBlurLine(&alpha[size_t(y) * size_t(w)], &across[size_t(y) * size_t(w)], w, 1,
                        radius);
        for (int x = 0; x < w; ++x)
            boxBlurLine(&across[size_t(x)], &alpha[size_t(x)], h, w, radius);
    }
    QImage shadow(source.size(), QImage::Format_ARGB32_Premultiplied);
    for (int y = 0; y < h; ++y) {
        auto *line = reinterpret_cast<QRgb *>(shadow.scanLine(y));
        for (int x = 0; x < w; ++x)
            line[x] = qRgba(0, 0, 0, alpha[size_t(y) * size_t(w) + size_t(x)]);
    }
    return shadow;
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
    // Layouts set the font again and again; only a change draws anew.
    if (testAttribute(Qt::WA_SetFont) && font == this->font())
        return;
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

void HXLabel::setShownLength(int count)
{
    if (count == m_shownLength)
        return;
    m_shownLength = count;
    update();
}

void HXLabel::setAlignment(Qt::Alignment alignment)
{
    m_alignment = alignment;
    reset();
}

void HXLabel::setIndent(int indent)
{
    m_indent = indent;
    reset();
    updateGeometry();
}

void HXLabel::setTextColor(const QColor &color)
{
    if (color == m_textColor)
        return;
    m_textColor = color;
    // Only the tint changes: the pipeline's images and the shadow stay.
    m_displayImage = QImage();
    update();
}

void HXLabel::reset()
{
    m_maskImage.clear();
    m_textImage.clear();
    m_displayImage = QImage();
    m_displayShadow = QImage();
    update();
}

QSize HXLabel::sizeHint() const
{
    const QFontMetrics metrics(font());
    const int indent = m_alignment & Qt::AlignHCenter ? 0 : m_indent;
    return {metrics.horizontalAdvance(m_text) + 2 * metrics.averageCharWidth() + indent,
            int(metrics.height() * 1.6)};
}

double HXLabel::textLeft(double width, double textWidth, double scale) const
{
    if (m_alignment & Qt::AlignLeft)
        return m_indent * scale;
    if (m_alignment & Qt::AlignRight)
        return width - textWidth - m_indent * scale;
    return (width - textWidth) / 2.0;
}

QRectF HXLabel::textRect() const
{
    // As the mask lays the line out, at three times the size.
    const QFontMetricsF metrics(scaledFont());
    const double textWidth = metrics.horizontalAdvance(m_text);
    const double top = (height() * kScale - metrics.height() / 2.0) / 2.0;
    return {textLeft(width() * kScale, textWidth, kScale) / kScale, top / kScale,
            textWidth / kScale, metrics.height() / kScale};
}

qreal HXLabel::baseline() const
{
    return textRect().top() + QFontMetricsF(scaledFont()).ascent() / kScale;
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

QFont HXLabel::scaledFont() const
{
    QFont big = font();
    big.setPointSizeF(font().pointSizeF() * kScale);
    return big;
}

QImage HXLabel::makeMask() const
{
    QImage mask(scaledSize(), QImage::Format_Grayscale8);
    mask.fill(Qt::black);
    const QFont big = scaledFont();
    QPainter p(&mask);
    p.setRenderHint(QPainter::TextAntialiasing);
    p.setFont(big);
    p.setPen(Qt::white);
    const QFontMetricsF metrics(big);
    const double textWidth = metrics.horizontalAdvance(m_text);
    const double textHeight = metrics.height();
    // The top of the text sits at (height - text height / 2) / 2.
    const double top = (mask.height() - textHeight / 2.0) / 2.0;
    p.drawText(QPointF(textLeft(mask.width(), textWidth, kScale), top + metrics.ascent()), m_text);
    return mask;
}

QImage HXLabel::makeShade(const QColor &from, const QColor &to, double start, double stop) const
{
    // Labels of one size share their shades (the colours are fixed), so a
    // row of equal labels holds one pair. An entry goes once no label holds
    // it any more.
    struct Shade
    {
        QSize size;
        QRgb from;
        QRgb to;
        double start;
        double stop;
        int style;
        QImage image;
    };
    static std::vector<Shade> shared;
    std::erase_if(shared, [](const Shade &entry) { return entry.image.isDetached(); });
    const Shade wanted{scaledSize(), from.rgba(), to.rgba(), start, stop, m_gradientStyle, {}};
    for (const Shade &entry : shared) {
        if (entry.size == wanted.size && entry.from == wanted.from && entry.to == wanted.to &&
            entry.start == wanted.start && entry.stop == wanted.stop && entry.style == wanted.style)
            return entry.image;
    }
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
    p.end();
    shared.push_back(wanted);
    shared.back().image = shade;
    return shade;
}

void HXLabel::renderImages()
{
    if (size().isEmpty())
        return;
    // A hidden label gets its resize event only when shown: images of
    // another size are stale all the same.
    const QSize scaled = scaledSize();
    for (ImageVar *image :
         {&m_maskImage, &m_shadeImage, &m_blackAndWhiteShadeImage, &m_textImage}) {
        if (image->notEmpty() && image->image().size() != scaled) {
            m_shadeImage.clear();
            m_blackAndWhiteShadeImage.clear();
            reset();
            break;
        }
    }
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
        m_textImage.setImage(
            blendWithMask(m_blackAndWhiteShadeImage.image(), material, m_maskImage.image()));
    }
    makeDisplayImages();
}

void HXLabel::makeDisplayImages()
{
    const qreal ratio = devicePixelRatioF();
    const QSize pixels = (QSizeF(size()) * ratio).toSize();
    if (m_displayShadow.size() != pixels) {
        m_displayShadow = shadowOf(m_textImage.image(), m_shadowBlur)
                              .scaled(pixels, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
        m_displayShadow.setDevicePixelRatio(ratio);
    }
    if (m_displayImage.size() == pixels)
        return;
    QImage tinted = m_textImage.image().convertToFormat(QImage::Format_ARGB32_Premultiplied);
    if (m_textColor != QColor(Qt::white)) {
        // Multiplying premultiplied channels by the colour keeps the alpha
        // and the shading of every pixel.
        const int r = m_textColor.red();
        const int g = m_textColor.green();
        const int b = m_textColor.blue();
        for (int y = 0; y < tinted.height(); ++y) {
            auto *line = reinterpret_cast<QRgb *>(tinted.scanLine(y));
            for (int x = 0; x < tinted.width(); ++x) {
                const QRgb c = line[x];
                line[x] =
                    qRgba(qRed(c) * r / 255, qGreen(c) * g / 255, qBlue(c) * b / 255, qAlpha(c));
            }
        }
    }
    m_displayImage = tinted.scaled(pixels, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    m_displayImage.setDevicePixelRatio(ratio);
}

void HXLabel::paintEvent(QPaintEvent *)
{
    renderImages();
    if (m_textImage.empty())
        return;
    if (m_shownLength == 0)
        return;
    QPainter p(this);
    if (m_shownLength > 0 && m_shownLength < m_text.size()) {
        // The end of the shown characters as the mask laid them out.
        const QFontMetricsF metrics(scaledFont());
        const double right = textLeft(width() * kScale, metrics.horizontalAdvance(m_text), kScale) +
                             metrics.horizontalAdvance(m_text.left(m_shownLength));
        p.setClipRect(QRectF(0, 0, right / kScale, height()));
    }
    p.setRenderHint(QPainter::SmoothPixmapTransform);
    // The offset is in a y-up system: -1 is one point down.
    const QPointF shadow(m_shadowOffset.x(), -m_shadowOffset.y());
    p.drawImage(shadow, m_displayShadow);
    p.drawImage(QPointF(0, 0), m_displayImage);
}
