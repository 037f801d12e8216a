#pragma once

#include <QColor>
#include <QImage>
#include <QWidget>

class HXLabel;

// A named image slot of a label.
class ImageVar
{
public:
    ImageVar(HXLabel *parentLabel, QString imageName)
        : m_parentLabel(parentLabel)
        , m_imageName(std::move(imageName))
    {
    }
    HXLabel *parentLabel() const { return m_parentLabel; }
    const QString &imageName() const { return m_imageName; }
    const QImage &image() const { return m_image; }
    void setImage(QImage image) { m_image = std::move(image); }
    bool empty() const { return m_image.isNull(); }
    bool notEmpty() const { return !empty(); }
    void clear() { m_image = QImage(); }

private:
    HXLabel *m_parentLabel;
    QString m_imageName;
    QImage m_image;
};

// A label drawn as embossed, shaded lettering: the text is rendered at three
// times the label's size into a mask, lofted into a height field, shaded by a
// gradient as a material and blended with a softer gradient through the mask.
// Every intermediate image is cached; text, font and parameter changes clear
// only the mask and the text image (the shade images use fixed colours).
class HXLabel : public QWidget
{
    Q_OBJECT

public:
    explicit HXLabel(QWidget *parent = nullptr);
    explicit HXLabel(const QString &text, QWidget *parent = nullptr);

    QString text() const { return m_text; }
    void setText(const QString &text);
    void setFont(const QFont &font);

    // Shows only the first `count` characters, without drawing anything
    // anew: what a word typed in letter by letter needs. Negative: all.
    int shownLength() const { return m_shownLength; }
    void setShownLength(int count);
    QString shownText() const { return m_shownLength < 0 ? m_text : m_text.left(m_shownLength); }

    // Where the line of text sits across the label: centred unless told
    // otherwise; a left or right aligned line keeps `indent` points from its
    // edge. The line's height in the label follows the drawing rule.
    Qt::Alignment alignment() const { return m_alignment; }
    void setAlignment(Qt::Alignment alignment);
    int indent() const { return m_indent; }
    void setIndent(int indent);
    // The colour the finished lettering is tinted with: the embossed image
    // is gray, from white to mid-gray, and is multiplied by it. White leaves
    // it as it is.
    QColor textColor() const { return m_textColor; }
    void setTextColor(const QColor &color);
    // The line box of the text and its baseline, in the label's coordinates,
    // for placing the label so that its lettering lands where it should.
    QRectF textRect() const;
    qreal baseline() const;

    QColor gradientStartColor() const { return m_gradientStartColor; }
    void setGradientStartColor(const QColor &color);
    QColor gradientStopColor() const { return m_gradientStopColor; }
    void setGradientStopColor(const QColor &color);
    double gradientStartLocation() const { return m_gradientStartLocation; }
    void setGradientStartLocation(double location);
    double gradientStopLocation() const { return m_gradientStopLocation; }
    void setGradientStopLocation(double location);
    int gradientStyle() const { return m_gradientStyle; }
    void setGradientStyle(int style);
    QColor shadowColor() const { return m_shadowColor; }
    void setShadowColor(const QColor &color);
    QPointF shadowOffset() const { return m_shadowOffset; }
    void setShadowOffset(const QPointF &offset);
    double shadowBlur() const { return m_shadowBlur; }
    void setShadowBlur(double blur);
    double heightMapRadius() const { return m_heightMapRadius; }
    void setHeightMapRadius(double radius);
    double shadedMaterialScale() const { return m_shadedMaterialScale; }
    void setShadedMaterialScale(double scale);
    bool orangeHighlight = false;
    bool highlighted = false;
    bool debugImages = false;

    const ImageVar &maskImage() const { return m_maskImage; }
    const ImageVar &shadeImage() const { return m_shadeImage; }
    const ImageVar &blackAndWhiteShadeImage() const { return m_blackAndWhiteShadeImage; }
    const ImageVar &textImage() const { return m_textImage; }
    // What painting draws: the text image tinted and scaled down to the
    // label's device pixels (made with it, after it).
    const QImage &displayImage() const { return m_displayImage; }

    // Runs the pipeline for the current size (what painting does first).
    void renderImages();
    void reset();

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    QSize scaledSize() const;
    double textLeft(double width, double textWidth, double scale) const;
    QFont scaledFont() const;
    QImage makeMask() const;
    void makeDisplayImages();
    QImage makeShade(const QColor &from, const QColor &to, double start, double stop) const;

    QString m_text;
    QColor m_gradientStartColor = Qt::white;
    QColor m_gradientStopColor = Qt::black;
    double m_gradientStartLocation = 0.0;
    double m_gradientStopLocation = 1.0;
    int m_gradientStyle = 0;
    QColor m_shadowColor = Qt::black;
    QPointF m_shadowOffset{0.0, -1.0};
    double m_shadowBlur = 1.0;
    double m_heightMapRadius = 5.0;
    double m_shadedMaterialScale = 50.0;
    Qt::Alignment m_alignment = Qt::AlignHCenter;
    int m_indent = 0;
    QColor m_textColor = Qt::white;
    int m_shownLength = -1;

    ImageVar m_maskImage{this, QStringLiteral("mask")};
    ImageVar m_shadeImage{this, QStringLiteral("shade")};
    ImageVar m_blackAndWhiteShadeImage{this, QStringLiteral("blackAndWhiteShade")};
    ImageVar m_textImage{this, QStringLiteral("text")};
    ImageVar m_bgImage{this, QStringLiteral("bg")};
    ImageVar m_flatTextImage{this, QStringLiteral("flatText")};
    // The text image tinted, and its shadow, scaled to device pixels once
    // rather than on every paint: a smooth reduction by three keeps the
    // strokes crisp where a scaled draw would alias.
    QImage m_displayImage;
    QImage m_displayShadow;
};
