#pragma once

#include <QWidget>

class QSvgRenderer;

// The about tab's picture kept in the program, drawn at whatever size the
// tab has (never below its minimum, where the scroll view takes over), with
// the running version written into it.
class HXOfflinePicture : public QWidget
{
    Q_OBJECT

public:
    explicit HXOfflinePicture(const QString &version, QWidget *parent = nullptr);
    ~HXOfflinePicture() override;

    QSize sizeHint() const override;
    // The picture's own size.
    QSize pictureSize() const;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    QSvgRenderer *m_renderer;
};
