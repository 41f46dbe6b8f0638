// Decides from a user's entry whether and how to notify. A failed notice never stops the work it reports on.
#include "deliver/notify.h"

#include <cstdio>
#include <cstring>

#include "config/attributes.h"
#include "deliver/mail.h"
#include "log/exception_log.h"
#include "log/log_and_trace.h"
#include "protocol/records.h"
#include "registry/regd_client.h"
#include "util/text.h"
#include "util/trace.h"

namespace faxtray {

// Notifies by the means that the entry names. Returns 1, or 0 if there is no usable means.
static int notify_by_means(const av_list_t *record, const char *subject, const char *message, int event)
{
    const int means = as_get_value_handle_av(AS_HOW_TO_NOTIFY, record);
    if (means == IV_HOW_TO_NOTIFY_EXEC) {
        trprintf("notify:  IV_HOW_TO_NOTIFY_EXEC not implemented.\n");
        return 0;
    }
    if (means != IV_HOW_TO_NOTIFY_EMAIL) {
        trprintf("notify:  Ignoring '%d' notification type...\n", means);
        return 0;
    }
    const char *address = av_getv(record, as_get_attr(AS_EMAIL_ADDRESS));
    if (!address) {
        trprintf("notify:  no email address found.\n");
        return 0;
    }
    trprintf("notify:  Notify '%s' of event '%d', by email\n", record->key, event);
    mail(address, subject, message);  // reports its own failures, which change nothing here
    return 1;
}

int notify(const av_list_t *record, const char *subject, const char *message, int event)
{
    if (!record) {
        trprintf("notify:  Bad argument to notify()\n");
        return 0;
    }
    // Kept: on standard output, which the daemon sends to its log file.
    const char *setting = av_getv(record, as_get_attr(AS_WHEN_TO_NOTIFY));
    if (!setting) {
        printf("UI_NOTIFY_ON not in list for %s\n", record->key);
        return 1;
    }
    char wanted[3072];  // a longer setting is cut; its events at the end are then not wanted
    snprintf(wanted, sizeof wanted, "%s", setting);
    // Kept: a search in the text, not in a list: "never" beside other events still means never, and any
    // separator between events works.
    if (strstr(wanted, "never")) {
        trprintf("notify:  '%s' does not want to be notified.\n", record->key);
        return 1;
    }
    // The setting is searched for the event's name as users write it.
    const char *name = as_get_value_string(AS_WHEN_TO_NOTIFY, event);
    if (!name) {
        trprintf("notify:  Could not find '%d' in value table\n", event);
        return 0;
    }
    if (!strstr(wanted, name)) {
        if (event != IV_WHEN_TO_NOTIFY_INCOMING_FAILURES_ONLY) {
            trprintf("notify:  Notification for '%s' not found in '%s'.\n", name, wanted);
            return 1;
        }
        // Kept: a user who did not ask for incoming_failures_only is notified anyway, as for fax_failures.
        event = IV_WHEN_TO_NOTIFY_FAX_FAILURES;
        name = as_get_value_string(AS_WHEN_TO_NOTIFY, event);
    }
    trprintf("notify:  Notify %s of '%s' event.\n", record->key, name);
    return notify_by_means(record, subject ? subject : "No subject.", message ? message : "No message.",
                           event);
}

// Traces, and if need be logs, why the registry returned no record for the user.
static void report_missing_record(const char *user_name)
{
    const err_t *error = regd_error();
    if (!error) {  // Kept: traced like an error without a text, on three lines
        trprintf("regd_get_ui_entry failed: [%s].\n", "");
        trprintf("    Major error:    %d.\n", 0);
        trprintf("    Minor error:    %d.\n", 0);
        log_only({ELOG_WARNING, elog_file_and_stderr},
                 "notify_uname:  Error status from regd call getting record for '%s'.\n", user_name);
    } else if (error->code == IE_INVALID) {  // a missing user is no exception
        trprintf("notify_uname:  Record for user '%s' not found.\n", user_name);
    } else {
        log_and_trace({ELOG_WARNING, ELOG_FILE}, "notify_uname: Error %d.%d getting record for user '%s'.\n",
                      error->code, error->sys_errno, user_name);
    }
}

int notify_uname(const char *user_name, const char *subject, const char *message, int event)
{
    if (is_empty(user_name)) {
        log_and_trace({ELOG_WARNING, elog_file_and_stderr}, "notify_uname:  Invalid argument.\n");
        return 0;
    }
    regd_handle_t *registry = regd_open(nullptr, 1);
    if (!registry) {
        log_and_trace({ELOG_WARNING, elog_file_and_stderr},
                      "notify_uname:  Could not open connection to info server.\n");
        return 0;
    }

    int result = 0;
    if (const av_list_t *found = regd_get_ui_entry(registry, regd_credentials(), user_name)) {
        // A copy: mailing asks the registry for the sender, and the reply replaces this one.
        av_list_ptr record(av_copy(found));
        if (record)
            result = notify(record.get(), subject, message, event);
    } else {
        report_missing_record(user_name);
    }
    regd_close(registry);
    return result;
}

int notify_cfile_user(const control_file_t *control_file, const char *subject, const char *message, int event)
{
    // The job's own address comes before its owner's wishes: whoever sent the job asked for the notice there.
    if (control_file->suppress == 1)
        return 1;
    const char *address = control_file->address;
    if (!is_empty(address) && strcasecmp(address, "(None)") != 0) {
        mail(address, subject, message);
        return 1;
    }
    if (control_file->cfile_rev(control_file) == 0)
        return 1;
    return notify_uname(control_file->owner, subject, message, event);
}

}  // namespace faxtray
