// The status widgets and the image operations behind the embossed label.
#include "HXAnimationTiming.h"
#include "HXDescriptionField.h"
#include "HXIconAnimate.h"
#include "HXImageFilters.h"
#include "HXLabel.h"
#include "HXProgress.h"
#include "HXTextAnimate.h"

#include <QPainter>
#include <QPropertyAnimation>
#include <QTest>

namespace {
QRect opaqueBounds(const QImage &image)
{
    QRect bounds;
    for (int y = 0; y < image.height(); ++y) {
        const auto *line = reinterpret_cast<const QRgb *>(image.constScanLine(y));
        for (int x = 0; x < image.width(); ++x) {
            if (qAlpha(line[x]) > 0)
                bounds |= QRect(x, y, 1, 1);
        }
    }
    return bounds;
}
} // namespace

class TestWidgets : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { HXAnimationTiming::setScale(0.02); }

    void heightFieldRisesOverTheRadiusInsideTheMask()
    {
        QImage mask(40, 40, QImage::Format_Grayscale8);
        mask.fill(Qt::black);
        QPainter(&mask).fillRect(QRect(10, 10, 20, 20), Qt::white);
        const QImage field = HXImageFilters::heightFieldFromMask(HXImageFilters::maskToAlpha(mask), 5.0);
        auto height = [&](int x, int y) { return qRed(field.pixel(x, y)); };
        QCOMPARE(qAlpha(field.pixel(5, 5)), 0);     // outside
        QCOMPARE(height(20, 20), 255);              // deep inside: the plateau
        QVERIFY(height(10, 20) < height(12, 20));   // the shoulder rises inwards
        QVERIFY(height(12, 20) < height(14, 20));
        QCOMPARE(height(15, 20), 255);              // five pixels in: the top
        QCOMPARE(height(20, 20), height(25, 20));   // symmetric plateau

        // Shading a flat plateau gives the shading image's centre; slopes
        // facing opposite ways pick opposite sides of it.
        QImage shade(64, 64, QImage::Format_ARGB32_Premultiplied);
        for (int y = 0; y < 64; ++y)
            for (int x = 0; x < 64; ++x)
                shade.setPixel(x, y, qRgb(x * 4, y * 4, 0));
        const QImage shaded = HXImageFilters::shadedMaterial(field, shade, 50.0);
        QCOMPARE(qRed(shaded.pixel(20, 20)), qRed(shade.pixel(32, 32)));
        QVERIFY(qRed(shaded.pixel(11, 20)) != qRed(shaded.pixel(28, 20)));
        QCOMPARE(qAlpha(shaded.pixel(5, 5)), 0);

        const QImage blended = HXImageFilters::blendWithMask(shade, shaded, mask);
        QCOMPARE(blended.pixel(20, 20), shade.pixel(20, 20)); // white mask: the image
        QCOMPARE(qAlpha(blended.pixel(5, 5)), 0);             // black mask: the background
    }

    void labelEmbossesTheTextAndNothingElse()
    {
        HXLabel label(QStringLiteral("PASSED"));
        QFont font = label.font();
        font.setPointSize(18);
        font.setBold(true);
        label.setFont(font);
        label.resize(220, 48);
        label.renderImages();
        const QImage text = label.textImage().image();
        QCOMPARE(text.size(), QSize(660, 144));

        // Where the lettering is, and only near it, the image has pixels.
        const QImage mask = label.maskImage().image();
        QRect lettering;
        for (int y = 0; y < mask.height(); ++y)
            for (int x = 0; x < mask.width(); ++x)
                if (qGray(mask.pixel(x, y)) > 0)
                    lettering |= QRect(x, y, 1, 1);
        QVERIFY(!lettering.isEmpty());
        QVERIFY(lettering.left() > 20 && lettering.right() < 640);
        const QRect drawn = opaqueBounds(text);
        QVERIFY2(lettering.contains(drawn), qPrintable(QStringLiteral("%1 outside %2").arg(
                                                 QString::number(drawn.width()), QString::number(lettering.width()))));
        QVERIFY(drawn.width() > lettering.width() * 9 / 10);
        // Embossed, not flat: the lettering holds many shades.
        QSet<QRgb> shades;
        for (int x = drawn.left(); x <= drawn.right(); ++x)
            shades.insert(text.pixel(x, drawn.center().y()));
        QVERIFY(shades.size() > 10);

        // The shade images use fixed colours: changing the gradient colour
        // re-renders to the very same pixels.
        label.setGradientStartColor(Qt::red);
        QVERIFY(label.textImage().empty());
        QVERIFY(label.shadeImage().notEmpty());
        label.renderImages();
        QCOMPARE(label.textImage().image(), text);
        label.setText(QStringLiteral("FAILED"));
        label.renderImages();
        QVERIFY(label.textImage().image() != text);
    }

    void iconStates()
    {
        HXIconAnimate icon(QStringLiteral("memoryOrange"));
        QCOMPARE(icon.status(), 0);
        icon.setStatus(2);
        icon.setStatus(2);
        QVERIFY(icon.isPulsing());
        QCOMPARE(icon.findChildren<QPropertyAnimation *>().size(), 1);
        QTRY_VERIFY(icon.opacity() < 0.9); // it does pulse
        icon.setStatus(4);
        QVERIFY(!icon.isPulsing());
        QCOMPARE(icon.opacity(), 1.0);
        QCOMPARE(icon.shownImageName(), QStringLiteral("memoryGreen"));
        icon.setStatus(1);
        QCOMPARE(icon.shownImageName(), QStringLiteral("memoryGray"));
        icon.setStatus(3);
        QCOMPARE(icon.shownImageName(), QStringLiteral("memoryRed"));
        icon.setStatus(7); // stored only
        QCOMPARE(icon.status(), 7);
        QCOMPARE(icon.shownImageName(), QStringLiteral("memoryRed"));
        icon.setStatus(0);
        QCOMPARE(icon.shownImageName(), QStringLiteral("memoryOrange"));

        HXIconAnimate plain(QStringLiteral("logo"));
        for (int status : {1, 3, 4}) {
            plain.setStatus(status);
            QCOMPARE(plain.shownImageName(), QStringLiteral("logo"));
        }
    }

    void progressBar()
    {
        HXProgress bar;
        bar.resize(240, 24);
        bar.setMinimum(0);
        bar.setMaximum(8);
        QVERIFY(bar.barRect().isEmpty());
        bar.setValue(4);
        QCOMPARE(bar.barRect(), QRectF(2, 5, 116, 14));
        QVERIFY(!bar.showsRightCap());
        bar.setValue(8);
        QVERIFY(bar.showsRightCap());
        QImage canvas(bar.size(), QImage::Format_ARGB32_Premultiplied);
        for (int i = 0; i < 7; ++i)
            bar.render(&canvas);
        QCOMPARE(bar.progressOffset(), 7.0);
        bar.render(&canvas); // past 7: back to 0
        QCOMPARE(bar.progressOffset(), 0.0);
    }

    void slidingAndFading()
    {
        HXTextAnimate text(QStringLiteral("Volume Structures"));
        text.slideUp();
        QTRY_COMPARE(text.translationY(), 30.0);
        text.slideDown();
        QTRY_COMPARE(text.translationY(), 0.0);

        HXDescriptionField description;
        description.fadeIn();
        QVERIFY(description.opacity() < 0.5);
        QTRY_COMPARE(description.opacity(), 1.0);
    }
};

QTEST_MAIN(TestWidgets)
#include "tst_widgets.moc"
