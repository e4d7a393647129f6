// Loads the shipped DefaultSettings.plist into the preferences' registration defaults at launch, so that every
// preference has a sensible value before the user first writes it.
#pragma once

class Bundle;
class Defaults;

class DefaultSettings {
public:
    // True when the resource was found and registered. A missing resource or one that is not a dictionary
    // registers nothing; that is a packaging fault, not something to tell the user about.
    static bool registerFromBundle(const Bundle& bundle, Defaults& defaults);
};
