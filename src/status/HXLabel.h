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

    // Runs the pipeline for the current size (what painting does first).
    void renderImages();
    void reset();

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    QSize scaledSize() const;
    QImage makeMask() const;
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

    ImageVar m_maskImage{this, QStringLiteral("mask")};
    ImageVar m_shadeImage{this, QStringLiteral("shade")};
    ImageVar m_blackAndWhiteShadeImage{this, QStringLiteral("blackAndWhiteShade")};
    ImageVar m_textImage{this, QStringLiteral("text")};
    ImageVar m_bgImage{this, QStringLiteral("bg")};
    ImageVar m_flatTextImage{this, QStringLiteral("flatText")};
    QImage m_shadow; // of the text image, made with it
};
