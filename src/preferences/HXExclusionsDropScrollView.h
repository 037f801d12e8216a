#pragma once

#include "HXTestExclusionsController.h"

#include <QPointer>
#include <QTableView>

// The exclusions list, which takes files dropped from the file manager
// (text/uri-list): each local path, in order, goes to the drag delegate's
// excludePath(); anything that is not a local file is ignored.
class HXExclusionsDropScrollView : public QTableView
{
    Q_OBJECT

public:
    explicit HXExclusionsDropScrollView(QWidget *parent = nullptr);

    void setDragDelegate(HXTestExclusionsController *delegate) { m_dragDelegate = delegate; }

    // The operation offered for a drag: none unless it carries file names,
    // else link when the source allows it, else copy, else none.
    static Qt::DropAction operationFor(const QMimeData *mime, Qt::DropActions allowed);
    // The local paths a drag carries, in order.
    static QStringList filePaths(const QMimeData *mime);
    // Hands the dropped paths to the delegate; a drop always succeeds.
    bool performDrop(const QMimeData *mime);

protected:
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dragMoveEvent(QDragMoveEvent *event) override;
    void dropEvent(QDropEvent *event) override;

private:
    QPointer<HXTestExclusionsController> m_dragDelegate;
};
