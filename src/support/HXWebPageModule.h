#pragma once

#include "HXWebPageView.h"

#include <QString>

// Finds and loads the module that holds Qt WebEngine, once; its factory, or
// null with the reason in *error (a build without WebEngine, a module that
// is missing or does not load).
class HXWebPageModule
{
public:
    static HXMakeWebPageViewFunction factory(QString *error);
    // Where the module is looked for: ORVEX_WEBPAGE_MODULE, else the
    // installed one for an installed program, else the one in the build.
    static QString path();
};
