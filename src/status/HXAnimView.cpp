#include "HXAnimView.h"

#include "HXAccessibility.h"
#include "HXAccessibleWords.h"
#include "HXAnimationTiming.h"
#include "HXArtwork.h"
#include "HXFade.h"
#include "HXKeyboardFocus.h"
#include "HXLabel.h"
#include "HXMachineProbes.h"
#include "HXStatusBoard.h"
#include "HXTextField.h"

#include <QAccessible>
#include <QCoreApplication>
#include <QGraphicsOpacityEffect>
#include <QKeyEvent>
#include <QLabel>
#include <QLocale>
#include <QMessageBox>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QPointer>
#include <QPropertyAnimation>
#include <QPushButton>
#include <QShortcut>
#include <QTimer>

namespace {

constexpr int kIconSize = 56;
constexpr int kMargin = 16;
// The keyboard's mark, in the window's highlight colour.
const QColor kFocusColour(0xf0, 0x8a, 0x24);

// The field font: German words are long, so German gets a narrower bold.
QFont subFieldFont()
{
    static const bool german = QLocale().uiLanguages().value(0).startsWith(QLatin1String("de"));
    if (german) {
        QFont bold;
        bold.setPointSize(12);
        bold.setBold(true);
        return bold;
    }
    return HXArtwork::displayFont(12);
}

// How a test is named on its group's panel, and whether it has a log action
// of its own (the partition map has none).
struct TestRow
{
    HXTest test;
    const char *name;
    bool hasLogAction;
};
constexpr TestRow kTestRows[] = {
    {HXTest::Memory, QT_TRANSLATE_NOOP("HXAnimView", "Memory"), true},
    {HXTest::Battery, QT_TRANSLATE_NOOP("HXAnimView", "Battery"), true},
    {HXTest::IO, QT_TRANSLATE_NOOP("HXAnimView", "Disk I/O Errors"), true},
    {HXTest::POST, QT_TRANSLATE_NOOP("HXAnimView", "Power On Self-Test"), true},
    {HXTest::VolumeStructures, QT_TRANSLATE_NOOP("HXAnimView", "Volume Structures"), true},
    {HXTest::PartitionMap, QT_TRANSLATE_NOOP("HXAnimView", "Partition Map"), false},
    {HXTest::RAID, QT_TRANSLATE_NOOP("HXAnimView", "RAID"), true},
    {HXTest::SurfaceScan, QT_TRANSLATE_NOOP("HXAnimView", "Surface Scan"), true},
    {HXTest::SMART, QT_TRANSLATE_NOOP("HXAnimView", "SMART"), true},
    {HXTest::FileStructures, QT_TRANSLATE_NOOP("HXAnimView", "File Structures"), true},
};

const TestRow &rowOf(HXTest test)
{
    for (const TestRow &row : kTestRows) {
        if (row.test == test)
            return row;
    }
    Q_UNREACHABLE();
}

// Runs the steps one after another, each after its wait, on the main thread.
void runSteps(QObject *context, std::vector<std::pair<int, std::function<void()>>> steps, size_t from = 0)
{
    if (from >= steps.size())
        return;
    QPointer<QObject> guard(context);
    const int wait = steps[from].first;
    auto next = [guard, steps, from]() {
        if (!guard)
            return;
        steps[from].second();
        runSteps(guard, steps, from + 1);
    };
    if (wait <= 0)
        next();
    else
        QTimer::singleShot(HXAnimationTiming::milliseconds(wait), context, next);
}

} // namespace

const std::array<QColor, 5> &HXAnimView::statusColors()
{
    static const std::array<QColor, 5> colors = {QColor(Qt::white), QColor(0x3f, 0xb9, 0x50), QColor(0xf5, 0xc5, 0x18),
                                                 QColor(0xe5, 0x48, 0x4d), QColor(0x7d, 0x85, 0x8f)};
    return colors;
}

bool HXAnimView::batteryExists()
{
    return HXMachineProbes::current().hasInternalBattery();
}

HXAnimView::HXAnimView(HXTestGroup group, const QString &title, const QString &iconName,
                       QWidget *parent)
    : QAbstractButton(parent)
    , m_group(group)
    , m_title(title)
    , m_tests(HXTestsOfGroup(group))
    , m_iconView(new QLabel(this))
    , m_titleField(new HXLabel(title, this))
    , m_statusField(new HXTextField(this))
    , m_closeButton(new QPushButton(QStringLiteral("×"), this))
{
    HXAccessibility::install();
    setCursor(Qt::PointingHandCursor);
    // Reached by Tab in reading order, opened with Space or Enter.
    setFocusPolicy(Qt::StrongFocus);
    HXKeyboardFocus::track(this);
    m_iconView->setPixmap(HXArtwork::pixmap(iconName, QSize(kIconSize, kIconSize), devicePixelRatioF()));
    m_iconView->setFixedSize(kIconSize, kIconSize);
    m_titleField->setFont(HXArtwork::displayFont(22));
    m_titleField->setAlignment(Qt::AlignLeft);
    m_titleField->setTextColor(QColor(0xf2, 0xf4, 0xf6));
    m_titleField->setAttribute(Qt::WA_TransparentForMouseEvents);
    m_statusField->setRealFont(HXArtwork::technicalFont(22, QFont::Bold));
    m_statusField->setRealString(QCoreApplication::translate("HXAnimView", "PENDING..."));
    m_statusField->resetOn();
    m_statusField->setTextColor(statusColors()[0]);

    m_closeButton->setFixedSize(26, 26);
    m_closeButton->setCursor(Qt::PointingHandCursor);
    m_closeButton->setToolTip(QCoreApplication::translate("HXAnimView", "Close (Esc)"));
    m_closeButton->setAccessibleName(QCoreApplication::translate("HXAnimView", "Close"));
    m_closeButton->setStyleSheet(QStringLiteral(
        "QPushButton { color: white; background: rgba(0,0,0,90); border: 1px solid rgba(255,255,255,60);"
        " border-radius: 13px; font-size: 16px; } QPushButton:hover { background: #f08a24; }"));
    m_closeButton->setStyleSheet(
        m_closeButton->styleSheet() +
        QStringLiteral(" QPushButton[keyboardFocus=\"true\"] { border: 2px solid #f08a24; }"));
    HXKeyboardFocus::track(m_closeButton);
    m_closeButton->hide();
    HXOpacityEffect(m_closeButton)->setOpacity(0.0);
    connect(m_closeButton, &QPushButton::clicked, this, &HXAnimView::closeRequested);
    for (HXTest test : std::as_const(m_tests))
        addTest(test);
    layoutFields();
    updateAccessibleName();
}

void HXAnimView::setRealFrame(const QRect &frame)
{
    m_realFrame = frame;
    setGeometry(frame);
}

void HXAnimView::addTest(HXTest test)
{
    const TestRow &row = rowOf(test);
    auto *bullet = new QLabel(QStringLiteral("•"), this);
    QFont bulletFont = font();
    bulletFont.setPointSize(16);
    bullet->setFont(bulletFont);
    auto *field = new QLabel(QCoreApplication::translate("HXAnimView", row.name), this);
    field->setFont(subFieldFont());
    field->setStyleSheet(QStringLiteral("color: #d8dde2;"));
    m_subFields << bullet << field;
    QPushButton *log = nullptr;
    if (row.hasLogAction) {
        log = new QPushButton(QStringLiteral("›"), this);
        log->setFixedSize(22, 20);
        log->setCursor(Qt::PointingHandCursor);
        log->setToolTip(QCoreApplication::translate("HXAnimView", "Show this result in the log"));
        log->setAccessibleName(HXAccessibleWords::showInLogName(field->text()));
        log->setStyleSheet(QStringLiteral("QPushButton { color: #f08a24; background: transparent; border: none;"
                                          " font-size: 18px; font-weight: bold; } QPushButton:hover { color: white; }"));
        log->setStyleSheet(log->styleSheet() +
                           QStringLiteral(" QPushButton[keyboardFocus=\"true\"] { color: white;"
                                          " border: 1px solid #f08a24; border-radius: 4px; }"));
        HXKeyboardFocus::track(log);
        connect(log, &QPushButton::clicked, this, [this, test] { Q_EMIT showInLog(test); });
    }
    m_logButtons.append(log);
    m_codes.append(0);
    setTestCode(int(m_codes.size()) - 1, 0);
}

QLabel *HXAnimView::nameField(HXTest test) const
{
    const qsizetype slot = m_tests.indexOf(test);
    return slot < 0 ? nullptr : m_subFields.value(2 * slot + 1);
}

bool HXAnimView::testApplies(HXTest) const
{
    return true;
}

void HXAnimView::setStatusForTests(const QMap<HXTest, qint32> &codes)
{
    for (qsizetype slot = 0; slot < m_tests.size(); ++slot) {
        const HXTest test = m_tests[slot];
        setTestCode(int(slot), testApplies(test) ? codes.value(test, HXGroupStatusNoResult)
                                                 : HXGroupStatusNotApplicable);
    }
    setStatus(HXStatusBoard::combine(QList<int>(m_codes.cbegin(), m_codes.cend())), true);
}

void HXAnimView::setStatusForTests(const HXStatusBoard &board)
{
    QMap<HXTest, qint32> codes;
    for (HXTest test : std::as_const(m_tests))
        codes.insert(test, board.testStatus(test));
    setStatusForTests(codes);
}

void HXAnimView::setTestCode(int slot, qint32 code)
{
    m_codes[slot] = code;
    QLabel *name = m_subFields[2 * slot + 1];
    const QString line = HXAccessibleWords::testLineName(name->text(), code);
    HXAccessibility::setName(name, line);
    // A style sheet, as the window's palette would otherwise win over a
    // child's when the style polishes it.
    m_subFields[2 * slot]->setStyleSheet(
        QStringLiteral("color: %1;").arg(statusColors()[size_t(std::clamp(code, 0, 4))].name()));
    updateLogButtons();
}

void HXAnimView::setLogButtonsShownAlways(bool showAll)
{
    m_showAll = showAll;
    updateLogButtons();
}

void HXAnimView::updateLogButtons()
{
    for (qsizetype slot = 0; slot < m_logButtons.size(); ++slot) {
        if (QPushButton *log = m_logButtons[slot])
            log->setVisible(m_showAll || m_codes.value(slot) == 2 || m_codes.value(slot) == 3);
    }
}

void HXAnimView::setStatus(qint32 code, bool animated)
{
    if (code == m_testStatus)
        return;
    m_testStatus = code;
    updateAccessibleName();
    const char *word = code == 3 ? "FAILED" : code == 2 ? "WARNING" : code == 1 ? "PASSED" : "PENDING...";
    const QColor colour = code >= 1 && code <= 3 ? statusColors()[size_t(code)] : statusColors()[0];
    m_statusField->setTextColor(colour);
    m_statusField->setRealString(QCoreApplication::translate("HXAnimView", word));
    if (animated) {
        m_statusField->resetOff();
        m_statusField->animate();
    } else {
        m_statusField->resetOn();
    }
}

void HXAnimView::updateAccessibleName()
{
    // Setting the name tells a screen reader that it changed.
    HXAccessibility::setName(this, HXAccessibleWords::groupName(m_title, m_testStatus));
}

QList<QWidget *> HXAnimView::accessibleParts() const
{
    QList<QWidget *> parts;
    for (qsizetype slot = 0; slot < m_tests.size(); ++slot) {
        parts.append(m_subFields.value(2 * slot + 1));
        if (QPushButton *log = m_logButtons.value(slot))
            parts.append(log);
    }
    parts.append(m_closeButton);
    return parts;
}

void HXAnimView::keyPressEvent(QKeyEvent *event)
{
    // Space is the button's own; Enter opens the box as well.
    if ((event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) &&
        event->modifiers() == Qt::NoModifier) {
        click();
        return;
    }
    QAbstractButton::keyPressEvent(event);
}

void HXAnimView::explainWhenNotApplicable(QLabel *name, std::function<bool()> applies, const QString &message,
                                          const QString &informative)
{
    name->installEventFilter(this);
    name->setCursor(Qt::WhatsThisCursor);
    m_clickable.emplace_back(name, [this, applies, message, informative] {
        if (applies())
            return;
        QMessageBox alert(QMessageBox::Information, QStringLiteral("Orvex"), message, QMessageBox::Ok, window());
        alert.setObjectName(QStringLiteral("notApplicableAlert"));
        alert.setInformativeText(informative);
        alert.exec();
    });
}

bool HXAnimView::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::MouseButtonRelease) {
        for (const auto &[label, action] : m_clickable) {
            if (label == watched) {
                action();
                return true; // the name's click is not the panel's
            }
        }
    }
    if (event->type() == QEvent::MouseButtonPress) {
        for (const auto &entry : m_clickable) {
            if (entry.first == watched)
                return true;
        }
    }
    return QAbstractButton::eventFilter(watched, event);
}

void HXAnimView::resizeEvent(QResizeEvent *event)
{
    QAbstractButton::resizeEvent(event);
    layoutFields();
}

void HXAnimView::layoutFields()
{
    m_iconView->move(kMargin, kMargin);
    const int textLeft = kMargin + kIconSize + 14;
    // The title's baseline a little above the status plate. Its width is
    // the word's, not the panel's, so that resizing the window does not draw
    // it anew.
    m_titleField->resize(std::min(m_titleField->sizeHint().width(), width() - textLeft - 44),
                         m_titleField->sizeHint().height());
    m_titleField->move(textLeft, qRound(kMargin + 24 - m_titleField->baseline()));
    m_statusField->setGeometry(textLeft, kMargin + 32, std::min(230, width() - textLeft - kMargin), 34);
    m_statusField->resetFontSize();
    m_closeButton->move(width() - m_closeButton->width() - 10, 10);
    // Tests in two columns under the header.
    const int top = kMargin + kIconSize + 20;
    const int columnWidth = (width() - 2 * kMargin) * 11 / 20;
    for (qsizetype pair = 0; pair * 2 + 1 < m_subFields.size(); ++pair) {
        const int column = int(pair) / 3;
        const int row = int(pair) % 3;
        const int x = kMargin + column * columnWidth;
        const int y = top + row * 26;
        m_subFields[pair * 2]->setGeometry(x, y - 2, 16, 24);
        QLabel *name = m_subFields[pair * 2 + 1];
        name->setGeometry(x + 18, y, columnWidth - 46, 22);
        if (QPushButton *log = m_logButtons.value(pair))
            log->move(x + 18 + std::min(name->sizeHint().width(), columnWidth - 46) + 2, y + 1);
    }
}

void HXAnimView::setPanelOpacity(double opacity)
{
    m_panelOpacity = opacity;
    update();
}

void HXAnimView::fadePanel(double to)
{
    auto *fade = new QPropertyAnimation(this, "panelOpacity", this);
    fade->setDuration(HXAnimationTiming::milliseconds(250));
    fade->setEndValue(to);
    fade->start(QAbstractAnimation::DeleteWhenStopped);
}

void HXAnimView::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.setOpacity(m_panelOpacity);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF panel = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    QLinearGradient face(0, 0, 0, height());
    const bool hot = isDown() || (underMouse() && isEnabled());
    face.setColorAt(0, hot ? QColor(0x3b, 0x42, 0x4b) : QColor(0x33, 0x39, 0x41));
    face.setColorAt(1, hot ? QColor(0x26, 0x2b, 0x31) : QColor(0x22, 0x26, 0x2c));
    p.setPen(QPen(QColor(0x11, 0x13, 0x16), 1));
    p.setBrush(face);
    p.drawRoundedRect(panel, 12, 12);
    p.setPen(QPen(QColor(255, 255, 255, 22), 1));
    p.drawLine(QPointF(12, 1.5), QPointF(width() - 12, 1.5));
    if (HXKeyboardFocus::shows(this)) {
        p.setPen(QPen(kFocusColour, 2));
        p.setBrush(Qt::NoBrush);
        p.drawRoundedRect(QRectF(rect()).adjusted(2, 2, -2, -2), 10, 10);
    }
}

QPoint HXAnimView::offScreenPlace() const
{
    const QWidget *parent = parentWidget();
    const int parentWidth = parent ? parent->width() : 0;
    const bool rightHalf = m_realFrame.left() >= parentWidth / 2;
    return {rightHalf ? parentWidth : -m_realFrame.width(), m_realFrame.top()};
}

QList<QWidget *> HXAnimView::fadingParts() const
{
    QList<QWidget *> parts{m_iconView, m_titleField, m_statusField};
    for (QLabel *field : m_subFields)
        parts.append(field);
    for (QPushButton *log : m_logButtons) {
        if (log)
            parts.append(log);
    }
    return parts;
}

void HXAnimView::viewWillAppear()
{
    move(offScreenPlace());
    for (QLabel *field : m_subFields)
        HXOpacityEffect(field)->setOpacity(0.0);
    m_statusField->resetOff();
}

void HXAnimView::viewDidAppear()
{
    std::vector<std::pair<int, std::function<void()>>> steps;
    steps.emplace_back(0, [this] {
        auto *slide = new QPropertyAnimation(this, "pos", this);
        slide->setDuration(HXAnimationTiming::milliseconds(250));
        slide->setEasingCurve(QEasingCurve::OutQuad);
        slide->setEndValue(m_realFrame.topLeft());
        slide->start(QAbstractAnimation::DeleteWhenStopped);
    });
    steps.emplace_back(150, [this] { m_statusField->animate(); });
    for (qsizetype pair = 0; pair * 2 + 1 < m_subFields.size(); ++pair) {
        steps.emplace_back(pair == 0 ? 0 : 150, [this, pair] {
            HXFade(m_subFields[pair * 2], 1.0, 150);
            HXFade(m_subFields[pair * 2 + 1], 1.0, 150);
        });
    }
    runSteps(this, std::move(steps));
}

long long HXAnimView::viewWillDisappear()
{
    move(m_realFrame.topLeft());
    setPanelOpacity(1.0);
    for (QWidget *part : fadingParts())
        HXOpacityEffect(part)->setOpacity(1.0);
    m_statusField->resetOn();
    auto *slide = new QPropertyAnimation(this, "pos", this);
    slide->setDuration(HXAnimationTiming::milliseconds(250));
    slide->setEasingCurve(QEasingCurve::OutQuad);
    slide->setEndValue(offScreenPlace());
    slide->start(QAbstractAnimation::DeleteWhenStopped);
    return 250000;
}

void HXAnimView::setFaded(bool faded)
{
    if (faded == m_faded)
        return;
    m_faded = faded;
    QAccessible::State changed;
    changed.invisible = true;
    QAccessibleStateChangeEvent event(this, changed);
    QAccessible::updateAccessibility(&event);
}

void HXAnimView::fadeOut()
{
    setFaded(true);
    for (QWidget *part : fadingParts())
        HXFade(part, 0.0, 250);
    fadePanel(0.0);
    QPointer<HXAnimView> self(this);
    QTimer::singleShot(HXAnimationTiming::milliseconds(250), this, [self] {
        if (self && self->m_faded)
            self->hide();
    });
}

void HXAnimView::fadeIn()
{
    setFaded(false);
    show();
    for (QWidget *part : fadingParts())
        HXFade(part, 1.0, 250);
    fadePanel(1.0);
}

void HXAnimView::activate()
{
    m_closeButton->show();
    m_closeButton->raise();
    HXFade(m_closeButton, 1.0, 250);
    QPointer<HXAnimView> self(this);
    QTimer::singleShot(HXAnimationTiming::milliseconds(1000), this, [self] {
        if (!self || !self->m_closeButton->isVisible())
            return;
        // From now on Escape closes the box.
        self->m_closeButton->setShortcut(QKeySequence(Qt::Key_Escape));
        self->setShortcut(QKeySequence());
    });
}

void HXAnimView::deactivate()
{
    m_closeButton->setShortcut(QKeySequence());
    QPointer<HXAnimView> self(this);
    QTimer::singleShot(HXAnimationTiming::milliseconds(250), this, [self] {
        if (!self)
            return;
        auto *fade = new QPropertyAnimation(HXOpacityEffect(self->m_closeButton), "opacity", self->m_closeButton);
        fade->setDuration(HXAnimationTiming::milliseconds(250));
        fade->setEndValue(0.0);
        QObject::connect(fade, &QPropertyAnimation::finished, self->m_closeButton, &QWidget::hide);
        fade->start(QAbstractAnimation::DeleteWhenStopped);
    });
}
