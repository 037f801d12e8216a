#pragma once

#include <QAbstractButton>

// One of the main window's three tab buttons: the artwork named by its image
// (normal or pressed), with its title over it. It keeps its image undimmed
// while disabled, and pushes in while held.
class HXTabButton : public QAbstractButton
{
    Q_OBJECT

public:
    HXTabButton(const QString &title, int tag, QWidget *parent = nullptr);

    int tag() const { return m_tag; }
    QString imageName() const { return m_imageName; }
    void setImageName(const QString &name);

    QSize sizeHint() const override { return {160, 42}; }

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    int m_tag;
    QString m_imageName;
};
