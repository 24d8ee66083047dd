// Command-line options derived from the parameters the plug-in declares.
//
// Every option comes from a definition the plug-in handed to add_param:
// its name is the display name in lower case with words joined by '-', its
// range and default are the declared ones, a popup's menu names are the
// declared choice string. Values are given in the units the host's
// controls show and become the host's 16.16 numbers by truncation.
#pragma once

#include <string>
#include <vector>

#include "host.h"

namespace tarvo::cli {

struct ParamOption {
  int index = 0;            // host parameter index (1-based; 0 is the input layer)
  std::string displayName;  // as declared
  std::string name;         // option name without the leading "--"
  host::DeclaredParam declared;
};

// "Angular Wave Height" → "angular-wave-height", "WaveForm" → "waveform".
std::string OptionName(const std::string& displayName);

// One option per declared parameter of a kind the command line can set
// (sliders, angles, popups, points, checkboxes, colours).
std::vector<ParamOption> OptionsFromDeclared(const std::vector<host::DeclaredParam>& declared);

// Parses text for opt and stores the value into the host's parameter array.
// False with a one-line *error naming the option when the text is not a
// value the parameter accepts.
bool ApplyValue(const ParamOption& opt, const std::string& text, host::Host& host, std::string* error);

// A point that the plug-in keeps inside the layer (restrict_bounds) must lie
// within width × height pixels; "" when it does, else the problem.
std::string CheckPointInLayer(const ParamOption& opt, host::Host& host, int32_t width, int32_t height);

// "3.0": major and minor of a version word packed as in the property list.
std::string VersionText(uint32_t version);

// Shown value of a 16.16 number: shortest exact decimal, e.g. 3.125, -150, 6.25.
std::string FormatFixed(int32_t fixed);

// Names compare equal when they differ only in case, blanks, dashes and
// underscores: "Pin Left", "pin-left", "pinleft" and "PIN_LEFT" are one name.
std::string MatchKey(const std::string& name);

// Menu value of a popup entry name (matched by MatchKey), 0 when none.
// Separator lines and entries without a name have none.
int PopupNumber(const ParamOption& opt, const std::string& name);

// Menu value v (1-based) is one of the menu's separator lines, which the
// plug-in declares but no user picks.
bool IsSeparatorEntry(const ParamOption& opt, int v);

// The parameter list for --list-params (text table or JSON).
std::string DescribeText(const host::PropertyInfo& info, const std::vector<ParamOption>& options);
std::string DescribeJson(const host::PropertyInfo& info, const std::vector<ParamOption>& options);

// The name among candidates closest to name in edit distance (letters
// swapped count once), compared by MatchKey; "" when none is within two
// edits (one for names of up to four letters).
std::string ClosestName(const std::string& name, const std::vector<std::string>& candidates);

// What the option takes and its default, one line (for --help).
std::string OptionHelp(const ParamOption& opt);
std::string OptionTypeName(const ParamOption& opt);

}  // namespace tarvo::cli
