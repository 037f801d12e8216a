#include "HXOfflinePicture.h"

#include <QFile>
#include <QPainter>
#include <QSvgRenderer>

HXOfflinePicture::HXOfflinePicture(const QString &version, QWidget *parent)
    : QWidget(parent)
{
    setObjectName(QStringLiteral("aboutOfflinePicture"));
    QFile file(QStringLiteral(":/about/aboutOffline.svg"));
    QByteArray svg = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    svg.replace("@VERSION@", version.toHtmlEscaped().toUtf8());
    m_renderer = new QSvgRenderer(svg, this);
    m_renderer->setAspectRatioMode(Qt::KeepAspectRatio);
    setAccessibleName(tr("Orvex"));
    setAccessibleDescription(
        tr("Orvex, version %1: ten tests in four groups. Hardware: Memory, Battery. "
           "System: Disk I/O Errors, Power On Self-Test. Drives: Volume Structures, "
           "Partition Map, RAID, Surface Scan, SMART. Files: File Structures.")
            .arg(version));
    // Half the picture's size is still legible; below that the scroll view
    // shows it in part.
    setMinimumSize(pictureSize() / 2);
}

HXOfflinePicture::~HXOfflinePicture() = default;

QSize HXOfflinePicture::pictureSize() const
{
    return m_renderer->defaultSize();
}

QSize HXOfflinePicture::sizeHint() const
{
    return pictureSize();
}

void HXOfflinePicture::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    // As large as fits, centred; the picture's own corners are round.
    QSizeF size = QSizeF(pictureSize()).scaled(QSizeF(this->size()), Qt::KeepAspectRatio);
    const QRectF target((width() - size.width()) / 2, (height() - size.height()) / 2, size.width(),
                        size.height());
    m_renderer->render(&p, target);
}
