#include "HXLogIcons.h"

#include "HXArtwork.h"
#include "HXConstants.h"

#include <QPainter>

namespace HXLogIcons {

namespace {

QIcon artwork(const QString &name, int size)
{
    QIcon icon;
    for (const qreal ratio : {1.0, 2.0}) {
        QPixmap pixmap = HXArtwork::pixmap(name, QSize(size, size), ratio);
        icon.addPixmap(pixmap);
    }
    return icon;
}

QIcon tinted(const QString &name, const QColor &colour, int size)
{
    QIcon icon;
    for (const qreal ratio : {1.0, 2.0}) {
        QPixmap pixmap = HXArtwork::pixmap(name, QSize(size, size), ratio);
        QPainter painter(&pixmap);
        painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
        painter.fillRect(QRect(QPoint(), pixmap.size()), colour);
        painter.end();
        icon.addPixmap(pixmap);
    }
    return icon;
}

} // namespace

QIcon typeIcon(const QString &type)
{
    static const QIcon passed = artwork(QStringLiteral("OrvexPassed.png"), kTypeIconSize);
    static const QIcon warning = artwork(QStringLiteral("warning.png"), kTypeIconSize);
    static const QIcon failed = artwork(QStringLiteral("OrvexFailed.png"), kTypeIconSize);
    if (type == HXDTestResultSuccessType)
        return passed;
    if (type == HXDTestResultWarningType)
        return warning;
    if (type == HXDTestResultErrorType)
        return failed;
    return {};
}

QIcon fileIcon(bool exists)
{
    static const QIcon found =
        tinted(QStringLiteral("FollowLinkTemplate.png"), QColor(0x40, 0x40, 0x40), kFileIconSize);
    static const QIcon missing = tinted(QStringLiteral("ExclamationPointTemplate.png"),
                                        QColor(0xd0, 0x1c, 0x1c), kFileIconSize);
    return exists ? found : missing;
}

} // namespace HXLogIcons
