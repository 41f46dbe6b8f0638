// forwarder_claims: which incoming inboxes each designated forwarder gets.
//
// Each incoming inbox has at most one forwarder: the first user in the list to claim it.
#pragma once

#include <functional>

#include "config/av_table.h"

namespace faxtray {

// The handle of the incoming inbox of that description, as munged_strcmp compares; null if there is none.
using find_inbox_t = std::function<const char *(const char *description)>;

// What becomes of one name that a user claims.
enum class claim_result {
    GIVEN,
    TAKEN,    // by `holder`
    UNKNOWN,  // no inbox has that name
    UNREAD,   // the list was not read that far
};
using claim_listener = std::function<void(claim_result result, const char *name, const char *holder)>;

// Assigns to `user` the incoming inboxes that its "forwarder" claims and nobody holds yet. If it gets any,
// its "forwarder" and "forwarder_handle" become the comma-separated descriptions and handles of those, and a
// copy of the entry is added to `forwarders`; otherwise "forwarder" is removed. Users without inbox delivery
// are left alone. `listener` hears of each name. Returns 1, or 0 without memory: the claims are then still
// there.
int claim_inboxes(av_list_t *user, av_table_t *forwarders, const find_inbox_t &find_inbox,
                  const claim_listener &listener = {});

// The attributes of a forwarder's entry. The first holds what the user claims, later what it was given.
inline constexpr char claimed_names[] = "forwarder";
inline constexpr char assigned_handles[] = "forwarder_handle";

// Returns the next non-empty name of a comma-separated list, which is cut in place; null at its end.
char *next_name(char **rest);

}  // namespace faxtray
