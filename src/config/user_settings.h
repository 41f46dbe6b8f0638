// user_settings: what the settings in a user's entry mean, where a rule is not obvious or stands in several
// places.
#pragma once

#include "config/av_list.h"

namespace faxtray {

// Whether the name means, in any spelling, one of the two sections that are not users of the file.
bool is_special_name(const char *name);

// Whether the user has an inbox. Kept: "faxtray" anywhere in the method, while only a method that is exactly
// "faxtray" makes a forwarder.
bool takes_inbox_delivery(const av_list_t *user);

// Whether forwarders are offered the user as a recipient. Kept: only the first letter counts; site files say
// "y", "Yes", "true" or "T".
bool takes_forwarded_faxes(const av_list_t *user);

// The keyword of a delivery_method, cut in place: the text before the first ":", leading colons skipped.
char *cut_keyword(char *method);

// What follows the first ":" of a delivery_method, unchanged; null without one.
const char *command_text(const char *method);

}  // namespace faxtray
