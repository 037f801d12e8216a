#pragma once

#include <QWidget>

class HXLabel;

// The group views' status label: it keeps the whole word apart from what it
// shows, so that the word can be typed in letter by letter, and shrinks its
// font until the word fits. A translucent blue slanted plate sits behind it,
// and the word is embossed lettering in the colour of the status.
class HXTextField : public QWidget
{
    Q_OBJECT

public:
    explicit HXTextField(QWidget *parent = nullptr);

    QString realString() const { return m_realString; }
    void setRealString(const QString &word);
    QFont realFont() const { return m_realFont; }
    void setRealFont(const QFont &font);
    // What the label shows now: the word, part of it while typing, or nothing.
    QString text() const;
    QColor textColor() const;
    void setTextColor(const QColor &color);
    // The lettering, for what can be seen of it.
    HXLabel *letters() const { return m_letters; }

    // The font of `realFont`'s family, made smaller point by point until the
    // word fits the label.
    void resetFontSize();
    void resetOff(); // shows nothing
    void resetOn();  // shows the whole word
    // Types the word in, a letter every 0.1 s; stops when the word changes.
    void animate();
    bool isTyping() const { return m_typing; }

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    void typeNext(const QString &word, int shown);
    void placeLetters();

    HXLabel *m_letters;
    QString m_realString;
    QFont m_realFont;
    bool m_typing = false;
};
