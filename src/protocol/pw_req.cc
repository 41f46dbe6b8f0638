// Copying is all or nothing: a record with a missing string would fail only later, in the XDR routines.
#include "protocol/pw_req.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace faxtray {

static char no_text[] = "";

// Stores a copy of `text` in `field`. False with a message when out of memory.
static bool dup_field(char *&field, const char *text)
{
    field = strdup(text);
    if (field)
        return true;
    fprintf(stderr, "%s: strdup(\"%s\"): %s.", "copy_pw", text, strerror(errno));
    return false;
}

pw_req_t *copy_pw(pw_req_t *source)
{
    for (char **text : {&source->user, &source->password, &source->reserved_str}) {
        if (!*text)
            *text = no_text;
    }
    pw_req_ptr copy(static_cast<pw_req_t *>(calloc(1, sizeof(pw_req_t))));
    if (!copy) {
        fprintf(stderr, "%s: malloc(%d): %s.", "copy_pw", static_cast<int>(sizeof(pw_req_t)),
                strerror(errno));
        return nullptr;
    }
    if (!dup_field(copy->user, source->user) || !dup_field(copy->password, source->password) ||
        !dup_field(copy->reserved_str, source->reserved_str))
        return nullptr;
    copy->reserved_int = source->reserved_int;
    copy->check_value = source->check_value;
    return copy.release();
}

pw_req_t *new_pw(const char *user, const char *password, const char *reserved_str, int reserved_int,
                 u_int check_value)
{
    // copy_pw only reads the strings, so lending it constant ones is safe.
    pw_req_t lent = {const_cast<char *>(user), const_cast<char *>(password), const_cast<char *>(reserved_str),
                     reserved_int, check_value};
    return copy_pw(&lent);
}

void free_pw(pw_req_t *pw)
{
    if (!pw)
        return;
    free(pw->user);
    free(pw->password);
    free(pw->reserved_str);
    free(pw);
}

}  // namespace faxtray
