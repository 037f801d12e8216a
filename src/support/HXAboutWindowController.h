#pragma once

#include <QWidget>

class QLabel;

// The about window: the product's mark and name, its version line, the
// system it runs on and the copyright line.
class HXAboutWindowController : public QWidget
{
    Q_OBJECT

public:
    // `buildVersion` is the build number of the version line.
    explicit HXAboutWindowController(const QString &buildVersion, QWidget *parent = nullptr);

    QLabel *versionField() const { return m_versionField; }
    QLabel *copyrightField() const { return m_copyrightField; }
    QLabel *systemField() const { return m_systemField; }

private:
    QLabel *m_versionField = nullptr;
    QLabel *m_copyrightField = nullptr;
    QLabel *m_systemField = nullptr;
};
