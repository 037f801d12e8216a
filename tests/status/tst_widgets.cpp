// The status widgets and the image operations behind the embossed label.
#include "HXAnimationTiming.h"
#include "HXDescriptionField.h"
#include "HXIconAnimate.h"
#include "HXImageFilters.h"
#include "HXLabel.h"
#include "HXProgress.h"
#include "HXStagedAnimation.h"
#include "HXTextAnimate.h"
#include "HXTextField.h"

#include <QPainter>
#include <QPropertyAnimation>
#include <QTest>
#include <QThread>

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

    void labelTintsAndPlacesItsLettering()
    {
        HXLabel label(QStringLiteral("PASSED"));
        QFont font = label.font();
        font.setPointSize(18);
        label.setFont(font);
        label.resize(240, label.sizeHint().height());
        label.renderImages();
        const QImage gray = label.displayImage();
        QCOMPARE(gray.size(), label.size() * label.devicePixelRatio());

        // A tint multiplies the finished lettering and leaves the pipeline's
        // images alone.
        label.setTextColor(QColor(255, 0, 0));
        QVERIFY(label.textImage().notEmpty());
        label.renderImages();
        const QImage red = label.displayImage();
        int inked = 0;
        for (int y = 0; y < red.height(); ++y) {
            for (int x = 0; x < red.width(); ++x) {
                const QRgb g = gray.pixel(x, y);
                const QRgb r = red.pixel(x, y);
                QCOMPARE(qAlpha(r), qAlpha(g));
                QCOMPARE(qGreen(r), 0);
                QVERIFY(qAbs(qRed(r) - qRed(g)) <= 1);
                inked += qAlpha(r) > 128;
            }
        }
        QVERIFY(inked > 100);

        // The line box it reports is where the mask has its capitals: they
        // stand on the baseline and start at the indent when left aligned.
        label.setAlignment(Qt::AlignLeft);
        label.setIndent(12);
        label.renderImages();
        const QImage mask = label.maskImage().image();
        QRect ink;
        for (int y = 0; y < mask.height(); ++y)
            for (int x = 0; x < mask.width(); ++x)
                if (qGray(mask.pixel(x, y)) > 128)
                    ink |= QRect(x, y, 1, 1);
        QVERIFY2(qAbs(ink.bottom() + 1 - 3 * label.baseline()) <= 3,
                 qPrintable(QStringLiteral("ink ends at %1, baseline %2")
                                .arg(ink.bottom())
                                .arg(3 * label.baseline())));
        QVERIFY(ink.left() >= 3 * 12 && ink.left() <= 3 * 12 + 12);
        QCOMPARE(label.textRect().left(), 12.0);

        // Typing uncovers the drawn word instead of drawing it anew.
        QImage canvas(label.size(), QImage::Format_ARGB32_Premultiplied);
        label.render(&canvas, QPoint(), QRegion(), QWidget::DrawChildren); // as shown once
        const qint64 drawn = label.textImage().image().cacheKey();
        label.setShownLength(3);
        QCOMPARE(label.shownText(), QStringLiteral("PAS"));
        canvas.fill(Qt::transparent);
        label.render(&canvas, QPoint(), QRegion(), QWidget::DrawChildren);
        QCOMPARE(label.textImage().image().cacheKey(), drawn);
        const QFontMetricsF metrics(label.font());
        const QRect shown = opaqueBounds(canvas);
        QVERIFY(shown.right() > 12 + metrics.horizontalAdvance(QStringLiteral("PA")));
        QVERIFY(shown.right() < 12 + metrics.horizontalAdvance(QStringLiteral("PAS")) + 2);
        label.setShownLength(0);
        canvas.fill(Qt::transparent);
        label.render(&canvas, QPoint(), QRegion(), QWidget::DrawChildren);
        QVERIFY(opaqueBounds(canvas).isEmpty());

        label.setAlignment(Qt::AlignRight);
        QVERIFY(qAbs(label.textRect().right() - (label.width() - 12)) < 0.01);

        // Labels of one size share their shades; another size has its own.
        HXLabel twin(QStringLiteral("WARNING"));
        twin.resize(label.size());
        twin.renderImages();
        label.renderImages();
        QCOMPARE(twin.shadeImage().image().cacheKey(), label.shadeImage().image().cacheKey());
        QCOMPARE(twin.blackAndWhiteShadeImage().image().cacheKey(),
                 label.blackAndWhiteShadeImage().image().cacheKey());
        twin.resize(label.width() + 10, label.height());
        twin.renderImages();
        QVERIFY(twin.shadeImage().image().cacheKey() != label.shadeImage().image().cacheKey());
        QCOMPARE(twin.shadeImage().image().size(), twin.size() * 3);
    }

    void statusWordSitsOnItsPlate()
    {
        HXTextField field;
        field.resize(230, 34);
        QFont font = field.font();
        font.setPointSize(22);
        font.setBold(true);
        field.setRealFont(font);
        field.setRealString(QStringLiteral("FAILED"));
        field.setTextColor(QColor(255, 0, 0));
        QCOMPARE(field.text(), QString()); // nothing shown until told
        field.resetOn();
        QCOMPARE(field.text(), QStringLiteral("FAILED"));

        // The capitals are whole and centred on the plate, however low the
        // embossing rule sets a line in its label.
        auto inkOf = [](const QImage &image) {
            QRect ink;
            for (int y = 0; y < image.height(); ++y) {
                for (int x = 0; x < image.width(); ++x) {
                    const QRgb c = image.pixel(x, y);
                    if (qRed(c) > 110 && qGreen(c) < 60)
                        ink |= QRect(x, y, 1, 1);
                }
            }
            return ink;
        };
        const QImage shown = field.grab().toImage();
        const QRect ink = inkOf(shown);
        QVERIFY(!ink.isEmpty());
        QVERIFY2(ink.top() > 2 && ink.bottom() < shown.height() - 3,
                 qPrintable(QStringLiteral("%1..%2 of %3")
                                .arg(ink.top())
                                .arg(ink.bottom())
                                .arg(shown.height())));
        QVERIFY(qAbs(ink.top() - (shown.height() - 1 - ink.bottom())) <= 3);
        QVERIFY(ink.left() >= 8 && ink.left() <= 16); // at the indent

        // A word too long for the plate gets a smaller font and still fits.
        field.setRealString(QStringLiteral("FEHLGESCHLAGEN UND MEHR"));
        field.resetOn();
        QVERIFY(field.letters()->font().pointSizeF() < 22);
        const QRect longInk = inkOf(field.grab().toImage());
        QVERIFY(longInk.right() < field.width() - 4);
        QVERIFY(longInk.bottom() < field.height() - 3);

        // Typing starts from nothing and ends on the whole word.
        field.setRealString(QStringLiteral("PASSED"));
        field.resetOn();
        field.animate();
        QCOMPARE(field.text(), QString());
        QVERIFY(field.isTyping());
        QTRY_VERIFY(!field.isTyping());
        QCOMPARE(field.text(), QStringLiteral("PASSED"));
    }

    void stagedAnimationRunsItsStagesOnTheMainThread()
    {
        std::atomic<bool> cancel{false};
        QStringList ran;
        QList<bool> onMain;
        auto step = [&](const QString &name) {
            return [&, name] {
                ran.append(name);
                onMain.append(QThread::currentThread() == qApp->thread());
            };
        };
        {
            HXStagedAnimation stages(cancel);
            stages.run({{step(QStringLiteral("a")), 50},
                        {step(QStringLiteral("b")), 0},
                        {step(QStringLiteral("c"))}});
            QVERIFY(stages.isRunning());
            QTRY_VERIFY(!stages.isRunning());
            QCOMPARE(ran,
                     QStringList({QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c")}));
            QVERIFY(!onMain.contains(false));

            // A cancel seen after a stage that checks it ends the sequence
            // there, and is cleared.
            ran.clear();
            stages.run({{[&] {
                             ran.append(QStringLiteral("first"));
                             cancel = true;
                         },
                         10, true},
                        {step(QStringLiteral("never"))}});
            QTRY_VERIFY(!stages.isRunning());
            QCOMPARE(ran, QStringList({QStringLiteral("first")}));
            QVERIFY(!cancel);

            // Going away in the middle of a long wait stops at once; the
            // rest never runs.
            ran.clear();
            stages.run(
                {{step(QStringLiteral("before")), 1000000}, {step(QStringLiteral("after"))}});
            QTRY_COMPARE(ran, QStringList({QStringLiteral("before")}));
        }
        QCoreApplication::processEvents();
        QCOMPARE(ran, QStringList({QStringLiteral("before")}));
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
