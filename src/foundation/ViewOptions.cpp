#include "foundation/ViewOptions.h"

#include "foundation/Defaults.h"
#include "foundation/PreferenceKeys.h"

void ViewOptions::reset(Defaults& defaults)
{
    defaults.setValue(PreferenceKeys::TableShowUpgradesAbove, false);
    defaults.setValue(PreferenceKeys::TableStyle, 0);
    defaults.setValue(PreferenceKeys::TableColumnSizing, 0);
    defaults.setValue(PreferenceKeys::TranscriptFontStyle, 0);
}
