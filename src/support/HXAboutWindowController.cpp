#include "HXAboutWindowController.h"

#include "HXHostSystem.h"

#include <QApplication>
#include <QIcon>
#include <QLabel>
#include <QShortcut>
#include <QVBoxLayout>

namespace {

// The interface font at another size, in points so that the text keeps its
// size on screens of any resolution.
QFont systemFont(int points)
{
    QFont font = QApplication::font();
    font.setPointSize(points);
    return font;
}

QLabel *label(const QString &text, const QFont &font, QWidget *parent)
{
    auto *field = new QLabel(text, parent);
    field->setFont(font);
    field->setAlignment(Qt::AlignHCenter);
    field->setWordWrap(true);
    // Reachable by Tab and readable by a screen reader, and the version can
    // be copied into a support mail.
    field->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    field->setFocusPolicy(Qt::StrongFocus);
    field->setAccessibleName(text);
    return field;
}

} // namespace

HXAboutWindowController::HXAboutWindowController(const QString &buildVersion, QWidget *parent)
    : QWidget(parent, Qt::Dialog)
{
    setObjectName(QStringLiteral("AboutWindow"));
    setWindowTitle(tr("About Orvex"));
    setAttribute(Qt::WA_DeleteOnClose);

    auto *icon = new QLabel(this);
    icon->setPixmap(QIcon(QStringLiteral(":/artwork/orvex.svg")).pixmap(96, 96));
    icon->setAlignment(Qt::AlignHCenter);
    icon->setAccessibleName(tr("Orvex icon"));

    QFont nameFont = systemFont(16);
    nameFont.setBold(true);
    auto *name = new QLabel(QStringLiteral("Orvex"), this);
    name->setFont(nameFont);
    name->setAlignment(Qt::AlignHCenter);

    m_versionField =
        label(tr("Version %1 (%2)").arg(QCoreApplication::applicationVersion(), buildVersion),
              systemFont(13), this);
    m_versionField->setObjectName(QStringLiteral("versionField"));
    m_systemField =
        label(tr("Running on %1").arg(HXHostSystem::prettyName()), systemFont(11), this);
    m_systemField->setObjectName(QStringLiteral("systemField"));
    m_copyrightField =
        label(tr("Copyright © 2026 Talvorn. All rights reserved."), systemFont(10), this);
    m_copyrightField->setObjectName(QStringLiteral("copyrightField"));
    QPalette dim = m_copyrightField->palette();
    dim.setColor(QPalette::WindowText, dim.color(QPalette::PlaceholderText));
    m_copyrightField->setPalette(dim);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(32, 24, 32, 20);
    layout->setSpacing(6);
    layout->addWidget(icon);
    layout->addSpacing(4);
    layout->addWidget(name);
    layout->addWidget(m_versionField);
    layout->addWidget(m_systemField);
    layout->addSpacing(10);
    layout->addWidget(m_copyrightField);
    setFixedWidth(400);

    auto *close = new QShortcut(QKeySequence::Cancel, this);
    connect(close, &QShortcut::activated, this, &QWidget::close);
    auto *closeWindow = new QShortcut(QKeySequence::Close, this);
    connect(closeWindow, &QShortcut::activated, this, &QWidget::close);
}
