#pragma once

// The status tab's custom-drawn widgets as a screen reader meets them: a
// group view is a button named by its status with its test lines, arrows
// and close button inside, a live icon is an image named by its state, and
// the advice is a read-only text whose links are links. Views that are
// faded out say that they are not showing. Installs once; later calls do
// nothing.
class QString;
class QWidget;

namespace HXAccessibility {
void install();
// Gives a widget its name for a screen reader and tells it that the name
// changed (AT-SPI: object:property-change:accessible-name).
void setName(QWidget *widget, const QString &name);
} // namespace HXAccessibility
