#include "HXExclusionsDropScrollView.h"

#include <QDragEnterEvent>
#include <QMimeData>

HXExclusionsDropScrollView::HXExclusionsDropScrollView(QWidget *parent)
    : QTableView(parent)
{
    setAcceptDrops(true);
    viewport()->setAcceptDrops(true);
    setDragDropMode(QAbstractItemView::DropOnly);
}

QStringList HXExclusionsDropScrollView::filePaths(const QMimeData *mime)
{
    QStringList paths;
    if (!mime || !mime->hasUrls())
        return paths;
    const QList<QUrl> urls = mime->urls();
    for (const QUrl &url : urls) {
        if (url.isLocalFile())
            paths.append(url.toLocalFile());
    }
    return paths;
}

Qt::DropAction HXExclusionsDropScrollView::operationFor(const QMimeData *mime,
                                                        Qt::DropActions allowed)
{
    if (filePaths(mime).isEmpty())
        return Qt::IgnoreAction;
    if (allowed & Qt::LinkAction)
        return Qt::LinkAction;
    if (allowed & Qt::CopyAction)
        return Qt::CopyAction;
    return Qt::IgnoreAction;
}

void HXExclusionsDropScrollView::dragEnterEvent(QDragEnterEvent *event)
{
    const Qt::DropAction action = operationFor(event->mimeData(), event->possibleActions());
    if (action == Qt::IgnoreAction || !isEnabled()) {
        event->ignore();
        return;
    }
    event->setDropAction(action);
    event->accept();
}

void HXExclusionsDropScrollView::dragMoveEvent(QDragMoveEvent *event)
{
    const Qt::DropAction action = operationFor(event->mimeData(), event->possibleActions());
    if (action == Qt::IgnoreAction || !isEnabled()) {
        event->ignore();
        return;
    }
    event->setDropAction(action);
    event->accept();
}

bool HXExclusionsDropScrollView::performDrop(const QMimeData *mime)
{
    const QStringList paths = filePaths(mime);
    if (m_dragDelegate) {
        for (const QString &path : paths)
            m_dragDelegate->excludePath(path);
    }
    return true;
}

void HXExclusionsDropScrollView::dropEvent(QDropEvent *event)
{
    performDrop(event->mimeData());
    // The drop counts as taken whatever became of it.
    const Qt::DropAction action = operationFor(event->mimeData(), event->possibleActions());
    event->setDropAction(action == Qt::IgnoreAction ? Qt::CopyAction : action);
    event->accept();
}
