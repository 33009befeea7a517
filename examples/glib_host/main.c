/* A host in C with GLib: has zvupdate check for an update, tells how the download goes, lets
 * zvupdate show its window when the installer is ready, and hears what the user has chosen.
 *
 * All of it happens in GLib's main loop, which is GTK's, too, and blocks nothing. Copy what you
 * need; docs/helper-process.md says what else there is to know of zvupdate. */

#include <gio/gio.h>
#include <glib-unix.h>
#include <json-glib/json-glib.h>

#include <locale.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

/* The identifier under which the update service knows this product, and the version that runs. */
#define PRODUCT_ID "SampleApp"
#define PRODUCT_VERSION "2100"
#define PRODUCT_NAME "Sample App"
/* Whose preferences hold the user's wish to be updated. */
#define APPLICATION "Example/SampleApp"

/* One check. */
typedef struct
{
    GMainLoop *loop;
    GSubprocess *helper;
    GDataInputStream *events;
    int status; /* How the helper has ended, in the way of a shell. */
} Check;

/* Does what the application does with an event. One that is not known here is a newer zvupdate's,
 * and means nothing to this host. */
static void handle(JsonObject *event)
{
    const char *name = json_object_get_string_member_with_default(event, "event", "");
    if (g_str_equal(name, "offer")) {
        const char *version = json_object_get_string_member_with_default(event, "version", NULL);
        g_print("Version %s is available.\n", version ? version : "?");
    } else if (g_str_equal(name, "result")) {
        const gint64 code = json_object_get_int_member_with_default(event, "code", 0);
        if (code != 1 && code != 2)
            g_print("%s\n", json_object_get_string_member_with_default(event, "message", ""));
    } else if (g_str_equal(name, "progress")) {
        const gint64 received = json_object_get_int_member_with_default(event, "received", 0);
        /* Null while it is not known, which gives 0. */
        const gint64 total = json_object_get_int_member_with_default(event, "total", 0);
        if (total > 0)
            g_print("Downloading: %d %%\n", (int)(100.0 * (double)received / (double)total));
    } else if (g_str_equal(name, "ready")) {
        g_print("Ready to install: %s\n",
                json_object_get_string_member_with_default(event, "path", ""));
    } else if (g_str_equal(name, "window")) {
        const char *action = json_object_get_string_member_with_default(event, "action", "");
        if (g_str_equal(action, "update"))
            g_print("The installer is open; the application would end now, to be replaced.\n");
        else if (g_str_equal(action, "cancel"))
            g_print("The user does not want it now.\n");
        else
            g_print("The window was closed without a choice.\n");
    } else if (g_str_equal(name, "failed")) {
        g_printerr("%s\n", json_object_get_string_member_with_default(event, "reason", ""));
    }
}

static void helper_ended(GObject *source, GAsyncResult *result, gpointer data)
{
    Check *check = data;
    GSubprocess *helper = G_SUBPROCESS(source);
    g_subprocess_wait_finish(helper, result, NULL);
    check->status = g_subprocess_get_if_exited(helper) ? g_subprocess_get_exit_status(helper)
                                                       : 128 + g_subprocess_get_term_sig(helper);
    g_main_loop_quit(check->loop);
}

/* An event is a line. */
static void line_read(GObject *source, GAsyncResult *result, gpointer data)
{
    Check *check = data;
    g_autofree char *line =
        g_data_input_stream_read_line_finish(G_DATA_INPUT_STREAM(source), result, NULL, NULL);
    if (!line) {
        g_subprocess_wait_async(check->helper, NULL, helper_ended, check);
        return;
    }
    g_autoptr(JsonNode) node = json_from_string(line, NULL);
    if (node && JSON_NODE_HOLDS_OBJECT(node))
        handle(json_node_get_object(node));
    g_data_input_stream_read_line_async(check->events, G_PRIORITY_DEFAULT, NULL, line_read, check);
}

/* What zvupdate has received is kept, and the next check goes on from there. */
static gboolean stop(gpointer data)
{
    const Check *check = data;
    g_subprocess_send_signal(check->helper, SIGTERM);
    return G_SOURCE_CONTINUE;
}

/* With a session of its own the helper does not get the terminal's Ctrl-C, too. */
static void leave_session(gpointer data)
{
    (void)data;
    setsid();
}

int main(void)
{
    setlocale(LC_ALL, ""); /* NOLINT(concurrency-mt-unsafe): no second thread runs yet. */
    g_autofree char *directory =
        g_build_filename(g_get_user_data_dir(), APPLICATION, "updates", NULL);
    g_autoptr(GSubprocessLauncher) launcher =
        g_subprocess_launcher_new(G_SUBPROCESS_FLAGS_STDOUT_PIPE);
    g_subprocess_launcher_set_child_setup(launcher, leave_session, NULL, NULL);

    g_autoptr(GError) error = NULL;
    g_autoptr(GSubprocess) helper = g_subprocess_launcher_spawn(
        launcher, &error, "zvupdate", "check", "--json", "--product-id", PRODUCT_ID,
        "--product-version", PRODUCT_VERSION, "--directory", directory, "--application",
        APPLICATION, "--show-window", "--product-name", PRODUCT_NAME, NULL);
    if (!helper) {
        g_printerr("%s; install zvupdate, or add its folder to PATH\n", error->message);
        return EXIT_FAILURE;
    }

    g_autoptr(GMainLoop) loop = g_main_loop_new(NULL, FALSE);
    g_autoptr(GDataInputStream) events =
        g_data_input_stream_new(g_subprocess_get_stdout_pipe(helper));
    Check check = {.loop = loop, .helper = helper, .events = events, .status = EXIT_FAILURE};
    g_data_input_stream_read_line_async(events, G_PRIORITY_DEFAULT, NULL, line_read, &check);
    g_unix_signal_add(SIGINT, stop, &check);
    g_unix_signal_add(SIGTERM, stop, &check);
    g_unix_signal_add(SIGHUP, stop, &check);
    g_main_loop_run(loop);
    return check.status;
}
