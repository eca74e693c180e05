/* io.h - analogue ("real") and on/off ("digital") variables that the station's daemons share.
 *
 * A provider reads its inputs through callbacks, calibrates, averages and publishes them by name,
 * and is asked by name to set its outputs. A user looks up what the others publish and asks for
 * outputs to be set. Names are cut to 31 characters, and case does not matter in them.
 *
 * The provider of what stands below "analog" in its configuration ("analog;T1;chan,3" and
 * "analog;T1;cal,-40;100"), with an open link lnk:
 *
 *   IO_real_input_def inputs;
 *   IO_real_input_init(&inputs);
 *   CONF_node *tree = CONF_lookup_tree(local, "analog");
 *   IO_real_input_build(&inputs, tree, define, NULL, NULL, NULL, NULL);
 *   // each second
 *   IO_real_input_update(&inputs, NULL);
 *   IO_real_input_send_instant(&inputs, &lnk);
 *   // at the end of each averaging period
 *   IO_real_input_send_avg(&inputs, &lnk, UTIL_ftime());
 *   IO_real_input_clear_avg(&inputs);
 *   // at the end
 *   IO_real_input_delete(&inputs);
 *
 * A user of T1 that sets an output:
 *
 *   IO_init();
 *   IO_register_link(&lnk);
 *   // in the main loop
 *   ZEBMSG_process_messages(&lnk, on_message, NULL);
 *   double T = IO_lookup("T1"); // MVC while unknown
 *   if (T > 30 && T != MVC)
 *       IO_set(&lnk, "fan.speed", 1200);
 *   // at the end
 *   ZEBMSG_disconnect(&lnk);
 *   IO_cleanup();
 *
 * Values go when the program that first published them leaves. An output's last request is kept by
 * the program that made it, and sent again to whoever asks for it: a provider that starts calls
 * IO_request_resend_real and IO_request_resend_digital once its outputs are registered.
 *
 * Threads: nothing here locks. Everything belongs to the thread that calls ZEBMSG_process_messages,
 * where messages change the tables; other threads may look up only while none are processed.
 * Sending takes the link's mutex for the moment of queueing.
 *
 * Limits: each table remembers at most 4096 names; later ones are ignored, which is reported when
 * it begins and when it ends. Of a received record no more than its 64 channels are read, whatever
 * number it states, reported likewise.
 */
#ifndef ZEB2_IO_H
#define ZEB2_IO_H

#include "avg.h"
#include "conf.h"
#include "definitions/io.h"
#include "ll.h"
#include "log.h"
#include "physunits.h"
#include "port.h"
#include "zebmsg.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Types ---- */

/* A real that somebody publishes. What is not known yet is MVC. */
typedef struct IO_var_real {
    char name[32];
    double val;        /* latest value */
    double avg;        /* mean of the publisher's last averaging period */
    double runningavg; /* mean of the publisher's most recent samples */
    char clname[32];   /* program that published it first; "" for the built-in ones */
} IO_var_real;

/* A digital that somebody publishes. */
typedef struct IO_var_digital {
    char name[32];
    BOOL val;
    char clname[32]; /* as above */
} IO_var_digital;

/* The last value that this program asked a real output to take. */
typedef struct IO_var_real_out {
    char name[32];
    double val;
} IO_var_real_out;

/* The last state that this program asked a digital output to take. */
typedef struct IO_var_digital_out {
    char name[32];
    BOOL val;
} IO_var_digital_out;

/* Reads one input of a provider.
 * name: the input's. pd: the context that came with this function.
 * value: receives the raw value, before calibration; MVC when there is none.
 * Result: TRUE with a value, FALSE when there is nothing new. */
typedef BOOL (*IO_get_real)(const char *name, void *pd, double *value);

/* Sets one output of a provider.
 * value: calibrated; MVC when MVC was asked for, and NaN or infinite when that was: it comes from
 *   another program, so check what the hardware must not see.
 * name: the output's. pd: the context that came with this function. */
typedef void (*IO_set_real)(double value, const char *name, void *pd);

/* What IO_real_input_build found; the texts belong to the configuration. */
typedef struct IO_define_real_input_in {
    const char *name;    /* the node's name, uncut */
    const char *channel; /* the value of its key "chan"; null when there is none */
} IO_define_real_input_in;

/* The daemon's answer; all zero on entry, which refuses the input. */
typedef struct IO_define_real_input_out {
    BOOL valid;          /* whether this is an input of the daemon */
    IO_get_real get;     /* null refuses, too */
    void *get_pd;        /* given to get; borrowed until the inputs are deleted */
    const char *def_fmt; /* its format in the log, such as "*03.2f"; borrowed; may be null */
} IO_define_real_input_out;

typedef void (*IO_define_real_input)(IO_define_real_input_in *in, IO_define_real_input_out *out);

typedef struct IO_define_real_output_in {
    const char *name; /* as for inputs */
    const char *channel;
} IO_define_real_output_in;

typedef struct IO_define_real_output_out {
    BOOL valid;
    IO_set_real set; /* null refuses the output */
    void *set_pd;    /* given to set; borrowed until the outputs are deleted */
} IO_define_real_output_out;

typedef void (*IO_define_real_output)(IO_define_real_output_in *in, IO_define_real_output_out *out);

/* One of a provider's inputs. */
typedef struct IO_real_input_var {
    char name[32];
    PHYSUNITS_poly cal; /* from the raw to the published value */
    double val;         /* latest calibrated value, or MVC */
    BOOL in_updated;    /* val waits to be published */
    BOOL ra_updated;    /* the running average waits to be published */
    AVG_shifting avg;
    const char *deffmt;
    IO_get_real get;
    void *pd;
} IO_real_input_var;

/* One of a provider's outputs. */
typedef struct IO_real_output_var {
    char name[32];
    PHYSUNITS_poly cal; /* from the value asked for to the value that set receives */
    IO_set_real set;
    void *pd;
} IO_real_output_var;

typedef LL_TYPE IO_real_input_def;  /* of IO_real_input_var, in the order of the configuration */
typedef LL_TYPE IO_real_output_def; /* of IO_real_output_var, likewise */

/* ---- Shared values ---- */

/* The tables, in order of first appearance. To be read; the library changes them. */
ZEB_API extern LL_TYPE g_io_real;        /* of IO_var_real */
ZEB_API extern LL_TYPE g_io_digital;     /* of IO_var_digital */
ZEB_API extern LL_TYPE g_io_real_out;    /* of IO_var_real_out */
ZEB_API extern LL_TYPE g_io_digital_out; /* of IO_var_digital_out */

/* Sets the tables up with the built-in variables: reals "MVC", "ONE" (1.0) and "ZERO" (0.0),
 * digitals "FALSE" and "TRUE". They are ordinary otherwise: a program that publishes such a name
 * changes it.
 * Result: TRUE. Called again, it starts anew.
 * Threads: before messages are processed. LIBZEB_init does not call it. */
ZEB_API BOOL IO_init(void);

/* Empties the tables, built-in variables included.
 * Threads: after the last message was processed. */
ZEB_API void IO_cleanup(void);

/* Has a link's messages fill the tables, answer requests to send outputs again, and forget the
 * values of programs that leave.
 * lnk: not null, connected. Once a link.
 * Threads: for set-up, before messages are processed. */
ZEB_API void IO_register_link(ZEBMSG_link *lnk);

/* The latest value, the average, the running average of a real.
 * name: null is reported. Result: the value; MVC when the name or its value is unknown.
 * Threads: see above, as for all below. */
ZEB_API double IO_lookup(const char *name);
ZEB_API double IO_lookup_avg(const char *name);
ZEB_API double IO_lookup_runningavg(const char *name);

/* The state of a digital.
 * name: null is reported. Result: 0 or 1; FALSE when the name is unknown. */
ZEB_API BOOL IO_lookup_digital(const char *name);

/* The states of several digitals.
 * chans: names between any of ",", ";" and ":"; those behind the 32nd are ignored. Null is
 *   reported.
 * Result: bit i set when name i is not empty and that digital is on: "TRUE,,FALSE;TRUE" gives 9. */
ZEB_API unsigned int IO_digital_in(const char *chans);

/* Asks whoever has the real output of this name to set it, and remembers that for requests to send
 * it again. lnk, name: not null; a null name is reported and nothing is sent. val: any. */
ZEB_API void IO_set(ZEBMSG_link *lnk, const char *name, double val);

/* The same for up to 32 digital outputs in one message.
 * lnk: not null. chans: names as for IO_digital_in; null is reported and nothing is sent.
 * val: bit i is the state for name i. mask: bit i set when name i is to be set. Both are sent as
 *   they are; states are remembered for the names that are not empty and in the mask. */
ZEB_API void IO_set_digital(ZEBMSG_link *lnk, const char *chans, unsigned int val,
                            unsigned int mask);

/* Asks all programs to send their last requests for real (digital) outputs to this one.
 * lnk: not null. */
ZEB_API void IO_request_resend_real(ZEBMSG_link *lnk);
ZEB_API void IO_request_resend_digital(ZEBMSG_link *lnk);

/* ---- A provider's inputs ---- */

/* Makes a list of inputs empty, for fresh storage. inputs: not null, as for all below. */
ZEB_API void IO_real_input_init(IO_real_input_def *inputs);

/* Frees the inputs, and with them what the tables of IO_real_input_build point to. */
ZEB_API void IO_real_input_delete(IO_real_input_def *inputs);

/* Makes inputs of a branch of the configuration, and the columns with which they are logged.
 * inputs: may hold others already; new ones are appended.
 * tree: one child for each input; its key "chan" is handed to the daemon, its key "cal" is the
 *   calibration (coefficients c0;c1;c2... of PHYSUNITS_buildpoly, without it the raw value). Null
 *   has no children.
 * def: asked for each child, in order; children that it refuses are skipped. Null is reported, and
 *   no input is made.
 * lmd_base: a table of log variables that ends with a row of LVT_END; null has no rows.
 * lmd_out: receives a new table of all inputs of the list (their period averages), the rows of
 *   lmd_base behind them. The caller frees it with free(); it borrows from the inputs. May be null.
 * lrd_base: names of columns between ";"; null for none.
 * lrd_out: receives a new text with the names of all inputs behind lrd_base: "time" becomes
 *   "time;T1;P1". The caller frees it with free(). May be null.
 * Result: none. Without memory for an input it is skipped; without memory for a table or text that
 *   is reported, and it and what follows stay as they were. */
ZEB_API void IO_real_input_build(IO_real_input_def *inputs, CONF_node *tree,
                                 IO_define_real_input def, const LOG_map_defn *lmd_base,
                                 LOG_map_defn **lmd_out, const char *lrd_base, char **lrd_out);

/* Reads every input once: calibrates what is new, and averages it unless it is MVC.
 * lac: tells whether samples may be averaged now; null averages always. */
ZEB_API void IO_real_input_update(IO_real_input_def *inputs, LOG_avg_control *lac);

/* Starts a new averaging period of every input; its running average is to be published anew. */
ZEB_API void IO_real_input_clear_avg(IO_real_input_def *inputs);

/* Publishes values and running averages that are new since the last call, 64 a message at most.
 * lnk: not null. */
ZEB_API void IO_real_input_send_instant(IO_real_input_def *inputs, ZEBMSG_link *lnk);

/* Publishes the period average of every input, MVC where there is none.
 * lnk: not null. curtime: time of the average (s since 1970). */
ZEB_API void IO_real_input_send_avg(IO_real_input_def *inputs, ZEBMSG_link *lnk, FTIME curtime);

/* ---- A provider's outputs ---- */

/* Makes a list of outputs empty, for fresh storage. outputs: not null, as for all below. */
ZEB_API void IO_real_output_init(IO_real_output_def *outputs);

/* Frees the outputs. Not while messages of a link they are registered with are still processed. */
ZEB_API void IO_real_output_delete(IO_real_output_def *outputs);

/* Makes outputs of a branch of the configuration; tree and def as for inputs. */
ZEB_API void IO_real_output_build(IO_real_output_def *outputs, CONF_node *tree,
                                  IO_define_real_output def);

/* Sets every output of the name in a request, in the thread that calls.
 * ioreal: not null; its name may lack a terminator. */
ZEB_API void IO_real_output_update(IO_real_output_def *outputs, const NET_IO_Real *ioreal);

/* Has a link's requests set the outputs.
 * outputs: stays the caller's, and in place until the link is disconnected.
 * lnk: not null, connected.
 * Threads: for set-up. The outputs are set in the thread that calls ZEBMSG_process_messages. */
ZEB_API void IO_real_output_register_link(IO_real_output_def *outputs, ZEBMSG_link *lnk);

#ifdef __cplusplus
}
#endif
#endif
