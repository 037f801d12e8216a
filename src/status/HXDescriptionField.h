#pragma once

#include <QLabel>

class QGraphicsOpacityEffect;

// A description that fades in over two seconds.
class HXDescriptionField : public QLabel
{
    Q_OBJECT

public:
    explicit HXDescriptionField(QWidget *parent = nullptr);

    qint32 status() const { return m_status; }
    void setStatus(qint32 status) { m_status = status; }

    void fadeIn();
    double opacity() const;

private:
    qint32 m_status = 0;
    QGraphicsOpacityEffect *m_opacity;
};
