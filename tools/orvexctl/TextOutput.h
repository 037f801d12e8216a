#pragma once

#include "HXStatusBoard.h"
#include "HXStatusReport.h"

#include <QString>

// What orvexctl prints for a person. Colour only when asked for (a terminal).
namespace TextOutput {

QString statusWord(int groupStatus); // "FAILED", "WARNING", "PASSED", "PENDING..."
QString statusTable(const HXStatusBoard &board, bool colour);
QString statusLine(const HXStatusBoard &board, bool colour);
QString report(const HXStatusReport &report, bool colour);

} // namespace TextOutput
