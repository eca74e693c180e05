/* log.h - data lines: what a daemon logs, in which columns, into which file, and when a sample may
 * go into an average.
 *
 * A record is a kind of line: a code and a table of variables, each with the place its value comes
 * from. The configuration chooses its columns, formats and texts for missing values. The station's
 * messages start new files, flush, ask for monitor and average lines and switch logging on and off.
 *
 *   static double T;
 *   static const LOG_map_defn vars[] = {
 *       {"T", "*3.2f", NULL, LVT_DOUBLE, &T, NULL, NULL, NULL, "Temperature (C)"},
 *       {NULL, NULL, NULL, LVT_END, NULL, NULL, NULL, NULL, NULL}};
 *   void write_average(LOG_file *f, FTIME time) {
 *       LOG_write(f, &inst, "S", time);
 *   }
 *
 *   LOG_file f;
 *   LOG_init(&f);
 *   LOG_define_record(&f, "S", "T", vars, local, FALSE);
 *   if (!LOG_open(&f, root, local, &inst.msg_lnk))
 *       return 1;
 *   LOG_register_link(&f, &inst.msg_lnk, NULL, write_average);
 *   while (INST_sleep(&inst, 1.0)) {
 *       T = read_instrument();
 *       ZEBMSG_process_messages(&inst.msg_lnk, on_message, NULL);
 *       EVENTAT_run(0);
 *   }
 *   LOG_close(&f);
 *
 * A line is
 *   record type,station,epoch,YYYY-MM-DDThh:mm:ssZ,column,column,...
 *   TX1,ABC,1400000000,2014-05-13T16:53:20Z, 12.50
 * and a file begins with header lines, which have the syntax of the configuration file:
 *   !row;colhdr;TX1,TX1;STN;EPOCH;DateTime;T_X1
 *
 * Files: a file gets its name when its header is complete, in one step, so that whoever finds it
 * finds the whole header, also after a crash; at most its last line is torn. A file that can no
 * longer be written (full disk, read-only or vanished directory) is reported when that begins. The
 * next line tries again together with those that were still queued, in the same file, or in a new
 * one when it is gone. When that fails they are lost and counted; each further line tries again,
 * and the first that succeeds is reported with the count. The files are entries of zebfile.h, whose
 * servicing thread does the writing.
 *
 * Threads: nothing here locks. A LOG_file belongs to one thread, the one that processes messages
 * and runs the timed events; a daemon that uses it from several serialises its calls. That thread
 * must not be the one that services the entries: flushing, switching and closing wait for it. */
#ifndef ZEB2_LOG_H
#define ZEB2_LOG_H

#include "conf.h"
#include "definitions/log.h"
#include "inst.h"
#include "ll.h"
#include "port.h"
#include "sfmt.h"
#include "zebmsg.h"
#include <stdarg.h>
#include <stdio.h>
#include <time.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Records ---- */

/* Where the value of a variable comes from; `pd` is the variable's data pointer. The LVT_VA types
 * take the next argument of the write call instead. */
typedef enum LOG_VAR_TYPE ZEB_ENUM32 {
    LVT_AVG_SHIFTING = 0,         /* AVG_shift_avg of the AVG_shifting at pd */
    LVT_AVG_SHIFTING_RUNNING = 1, /* AVG_shift_running_avg of the AVG_shifting at pd */
    LVT_AVG_FIXED = 2,            /* AVG_fixed_avg of the AVG_fixed at pd */
    LVT_AVG_SIMPLE = 3,           /* AVG_simple_avg of the AVG_simple at pd */
    LVT_DOUBLE = 4,               /* the double at pd */
    LVT_MVC = 5,                  /* the missing value MVC */
    LVT_PTR = 6,                  /* the 32-bit word at pd */
    LVT_BYTE = 7,                 /* the BYTE at pd */
    LVT_WORD = 8,                 /* the WORD at pd */
    LVT_DWORD = 9,                /* the DWORD at pd */
    LVT_QWORD = 10,               /* the QWORD at pd */
    LVT_VA_DOUBLE = 11,           /* double */
    LVT_VA_PTR = 12,              /* void *, of which the low 32 bits count */
    LVT_VA_BYTE = 13,             /* int, of which the low 8 bits count */
    LVT_VA_WORD = 14,             /* int, of which the low 16 bits count */
    LVT_VA_DWORD = 15,            /* DWORD */
    LVT_VA_QWORD = 16,            /* QWORD */
    LVT_FUNCTION = 17,            /* the text that `map` makes */
    LVT_END = 18                  /* ends a table */
} LOG_VAR_TYPE;

struct LOG_record_var_defn_s;

/* Makes the text of an LVT_FUNCTION variable. pd: of the table row. var: the variable, not null.
 * out: empty, receives the text. Returns TRUE when it wrote the text; FALSE for a missing value.
 * Runs in the thread that writes. */
typedef BOOL (*LRD_map_func)(void *pd, struct LOG_record_var_defn_s *var, SFMT_buffer *out);
/* Makes further header lines of a variable. pdhdr: of the table row. index: 0, 1, 2, ... of the
 * line asked for. var: the variable, not null. out: empty, receives the line, without line end.
 * Returns TRUE when it wrote a line; FALSE when there are no more, which it must do some time.
 * Runs in the thread that defines the record. */
typedef BOOL (*LRD_hdr_func)(void *pdhdr, size_t index, struct LOG_record_var_defn_s *var,
                             SFMT_buffer *out);

/* One row of a table of variables, which a row of type LVT_END ends. The table and all it points at
 * belong to the caller and outlive the log file. */
typedef struct LOG_map_defn_s {
    const char *name;     /* of the variable; a row without one is reported and skipped */
    const char *format;   /* for SFMT_altprintf, or null: prints nothing */
    const char *defmvc;   /* text of a missing value, or null */
    LOG_VAR_TYPE type;    /* where the value comes from ... */
    void *pd;             /* ... and where that is; may be null for LVT_MVC and LVT_VA types */
    LRD_map_func map;     /* for LVT_FUNCTION */
    void *pdhdr;          /* data for gethdrs */
    LRD_hdr_func gethdrs; /* makes further header lines, or null */
    const char *desc;     /* description for the variable's header line, or null */
} LOG_map_defn;

/* A variable of a record; the texts belong to the record. */
typedef struct LOG_record_var_defn_s {
    const LOG_map_defn *defn; /* its row */
    char *format;             /* as configured, else as in the row, or null */
    char *mvc;                /* configured, else of the row, else made of the format; or null */
    char *hdrname;            /* name of its column */
    BOOL enabled;             /* evaluated, and may be a column */
} LOG_record_var_defn;

typedef struct LOG_record_defn {
    LOG_record_var_defn *vars; /* one per row, in the order of the table */
    size_t n_vars;
    size_t *cols;     /* columns in their order: indices into vars; one may appear twice */
    size_t n_cols;    /* 0: the record writes nothing */
    char code[32];    /* as the daemon calls the record */
    char rectype[64]; /* as its lines begin: the configured file name and the code */
} LOG_record_defn;

/* A log file; the caller owns the record and gives it to LOG_init before anything else. What it
 * holds belongs to the library; it is public for its size and for diagnostics. */
typedef struct LOG_file {
    int fh;                 /* descriptor of the current file, an entry of zebfile.h; -1: none */
    char basename[256];     /* directory, "/" and base name; "UNDEF" before the first opening */
    char filename[256];     /* full name of the current file */
    char stncode_u[32];     /* code of the station, in upper case ... */
    char stncode_l[32];     /* ... and in lower case */
    LL_TYPE headers;        /* header lines, sorted, without line ends */
    LL_TYPE records;        /* of LOG_record_defn */
    NET_LOG_Info info;      /* enabled: lines and headers go to the file */
    size_t max_file_size;   /* bytes, 0: no limit; for the daemon, the library does not act on it */
    BOOL problem_switching; /* a switch has failed and was reported */
    SFMT_buffer sbfr;       /* the line being formatted, or last formatted */
    /* The library's own bookkeeping. */
    QWORD entry;            /* tells the entry of `fh` from later ones with its number */
    size_t buffer_limit;    /* bytes that are held back before they are written; 0: none */
    BOOL interrupted;       /* the current file could not be written and is to be gone on with */
    BOOL headless;          /* the current file was begun while logging was disabled */
    size_t lost;            /* lines lost since it could not be written */
} LOG_file;

/* Makes a log file without file, records and header lines: station "stn"/"STN", base name "UNDEF",
 * logging disabled, no limits.
 * f: not null; what it held is not released.
 * Returns TRUE. Threads: the file's owner. */
ZEB_API BOOL LOG_init(LOG_file *f);

/* Defines a record, configures it and inserts its header lines. They appear in files begun
 * afterwards, so records are defined before the file is opened, or before the next switch.
 * f: not null. code: what the write calls name it by, of which 31 characters are kept; not null.
 * lrd: its columns, names of variables (column name or row name, case matters) separated by ";" or
 *   blanks; "*" for all in the order of the table; "" for none: the record then writes nothing. An
 *   unknown name is reported and left out, a disabled variable left out. Null: as configured only.
 * lmd: table of variables; stays in use. Null or empty defines nothing.
 * local: the daemon's branch of the configuration, or null. "record;CODE" replaces `lrd`; without
 *   either nothing is defined. "fil;name" is put in front of the code for the record type (62
 *   characters in all) and, with "_" in front, behind the names of the columns. "var;COLUMN;enable"
 *   (a number other than 0, or a word that begins with T or t), "var;COLUMN;format" and
 *   "var;COLUMN;mvc" configure a variable. A text for missing values that is nowhere given is made
 *   by formatting MVC, where the variable is real.
 * prefixnames: FALSE leaves names that contain "_" already as they are.
 * Header lines, with the columns' names, missing texts and formats, separated by ";":
 *   !row;colhdr;TYPE,TYPE;STN;EPOCH;DateTime;...
 *   !row;mvc;TYPE,TYPE;ZZZ;0;9999-99-99T99:99:99Z;...
 *   !row;varfmt;TYPE,TYPE;%s;%u;%04d-%02d-%02dT%02d:%02d:%02dZ;...
 *   !var;COLUMN;FieldDesc,DESCRIPTION
 * and what `gethdrs` makes. Returns nothing; without memory that is reported and the record is not
 * defined. Threads: the file's owner. */
ZEB_API void LOG_define_record(LOG_file *f, const char *code, const char *lrd,
                               const LOG_map_defn *lmd, CONF_node *local, BOOL prefixnames);

/* Inserts the comments of a branch of the configuration as header lines, a node's before its
 * children's. f: not null. node: null inserts nothing. Threads: the file's owner. */
ZEB_API void LOG_add_conf_headers(LOG_file *f, CONF_node *node);

/* ---- Writing ----
 *
 * Each formats one line of a record. rectime: time of the line, in seconds since the epoch; whole
 * seconds are printed, and what is not a time as 1969-12-31T23:59:59Z. The further arguments are
 * the values of the LVT_VA variables in the order of the table, also of disabled ones; their types
 * must be the ones above. Real values that equal MVC print the missing text, other values what the
 * format makes of them. Conversions for text ("s") print nothing. When memory for a line cannot be
 * had, that is reported and the line before is written once more. */

/* Writes the line to the file, when one is open and logging is enabled, and echoes it.
 * f: not null. lnk: link whose log echo gets the line, whether logging is enabled or not; or null.
 * code: of a record; one that is unknown or has no columns writes nothing.
 * Returns nothing. A file that cannot be written loses the line, see above.
 * Threads: the file's owner; never waits for the file, but for the answer to the echo. */
ZEB_API void LOG_write(LOG_file *f, INST_link *lnk, const char *code, FTIME rectime, ...);

/* Prints the line to a stream instead, whether logging is enabled or not. The line is the format of
 * an fprintf without arguments: a "%" that the values bring into it is interpreted, which programs
 * rely on; write none unless you mean it.
 * f, stream: not null. code, rectime: as above. Returns nothing; the stream's error flag tells.
 * Threads: the file's owner. */
ZEB_API void LOG_write_file(LOG_file *f, FILE *stream, const char *code, FTIME rectime, ...);

/* Writes the line to a descriptor instead, whether logging is enabled or not; a record without
 * columns writes 0 bytes.
 * f: not null. fd: any descriptor; not an entry of zebfile.h with bytes queued. code, rectime: as
 * above. Returns nothing; errno tells of a write that failed, which is not reported.
 * Threads: the file's owner; waits for the descriptor. */
ZEB_API void LOG_write_fd(LOG_file *f, int fd, const char *code, FTIME rectime, ...);

/* ---- Files ---- */

/* Opens a file for the daemon's base name and enables logging.
 * f: not null, initialised. root: the configuration, may be null. local: the daemon's branch.
 * lnk: link on which the state (MSG_LOG_INFO) is published, or null.
 * The base name is "fil;name" in `local`. Keys of `root`:
 *   Disk;LogDir       directory; a relative one is below $ZEB2, or "/"; else $DB/stn/STATION/log,
 *                     with /oru/db for an unset DB. It must exist.
 *   Disk;StationID    code of the station, cut to 31 characters; else "nil"
 *   Disk;BufferSize   kilobytes to hold back before they are written; else 0
 *   Disk;MaxFileSize  kilobytes; 0 and -1: no limit. Other negative numbers are the largest size.
 * "EnableLogging" in `local` disables logging when it reads as the number 0 and begins with neither
 * "t" nor "F": so do "0", "false", "TRUE" and "no", but not "true", "False" and "1". A file begun
 * so is empty; it gets its header when logging is enabled.
 * The file is DIRECTORY/BASENAME_YYYYMMDDThhmmssZ for the present time (UTC); an existing one of
 * this name is replaced. Its header lines, sorted without regard to case and each once, are those
 * of the records, the comments of "Global", "Disk" and "Control" in `root` and of `local`, and
 * lines about file, station and library.
 * Returns TRUE; FALSE without a base name, silently, and when the file cannot be begun (reported
 * with its directory): there is no file then, and the call may be repeated.
 * Threads: the file's owner. */
ZEB_API BOOL LOG_open(LOG_file *f, CONF_node *root, CONF_node *local, ZEBMSG_link *lnk);

/* The same with header lines of the program's own: `const char *` arguments up to a null pointer,
 * which must be there (NULL). They are copied.
 * Returns, threads: as LOG_open. */
ZEB_API BOOL LOG_open_n(LOG_file *f, CONF_node *root, CONF_node *local, ZEBMSG_link *lnk, ...)
    __attribute__((sentinel));

/* As LOG_open, with a base name given. basename: null opens no file, but does the rest: lines are
 * then only echoed or printed, and TRUE is returned.
 * Returns, threads: as LOG_open. */
ZEB_API BOOL LOG_open_basename(LOG_file *f, const char *basename, CONF_node *root,
                               CONF_node *local, ZEBMSG_link *lnk);

/* As LOG_open_basename, with header lines as LOG_open_n.
 * Returns, threads: as LOG_open. */
ZEB_API BOOL LOG_open_basename_n(LOG_file *f, const char *basename, CONF_node *root,
                                 CONF_node *local, ZEBMSG_link *lnk, ...)
    __attribute__((sentinel));

/* As LOG_open_basename_n, with the list of header lines.
 * extra: `const char *` arguments up to a null pointer; used up.
 * Returns, threads: as LOG_open. */
ZEB_API BOOL LOG_open_basename_va(LOG_file *f, const char *basename, CONF_node *root,
                                  CONF_node *local, ZEBMSG_link *lnk, va_list extra);

/* Starts a new file, named for the present time, and closes the current one, whose lines are all
 * written before. Within the second in which the current file was begun the new one has its name
 * and takes its place. f: not null. switchtime: not used.
 * Returns TRUE; FALSE when the new file cannot be begun: the current one stays. The first of such
 * failures in a row is reported, with the name of the new file.
 * Threads: the file's owner; waits for the servicing thread. */
ZEB_API BOOL LOG_switch(LOG_file *f, time_t switchtime);

/* Has every line so far written: handed to the file system on return, whatever is held back.
 * f: not null; without a file nothing happens.
 * Threads: the file's owner; waits for the servicing thread. */
ZEB_API void LOG_flush(LOG_file *f);

/* Closes the file, whose lines are all written before or, after a fault, reported as lost, and
 * releases records, header lines and buffer; monitor and average lines still due are not written.
 * f: not null, initialised. It may be initialised and used again, once the link it was registered
 *   with no longer delivers messages.
 * Threads: the file's owner, which is the thread of the timed events; waits for the servicing
 *   thread. */
ZEB_API void LOG_close(LOG_file *f);

/* Makes the name BASENAME_YYYYMMDDThhmmssZ.
 * basename: not null. t: seconds since the epoch, printed in UTC. dst: 256 bytes; a longer name is
 * cut. Threads: any. */
ZEB_API void LOG_filenamefortime(const char *basename, time_t t, char *dst);

/* ---- Messages ---- */

/* Writes the daemon's monitor or average records for a time. Runs in the file's thread. */
typedef void (*LOG_write_record)(LOG_file *f, FTIME time);

/* What is registered with a link for a log file. */
typedef struct LOG_message_proc_param {
    LOG_file *pf;
    LOG_write_record wr_mon;
    LOG_write_record wr_avg;
} LOG_message_proc_param;

/* Has the station's messages on a link serve a log file, when they are processed:
 *   MSG_LOG_FLUSH           LOG_flush
 *   MSG_LOG_SWITCHFILES     LOG_switch
 *   MSG_LOG_SET_STATE       enables or disables logging; a change is published (MSG_LOG_INFO)
 *   MSG_LOG_MONITOR_RECORD  wr_mon at its time, as a timed event (EVENTAT_run)
 *   MSG_LOG_NEW_AVERAGE     wr_avg likewise
 * A request for monitor or average lines that comes while one of its kind is due is dropped; the
 * timed events of all log files of the process count. Messages without a record are ignored, and
 * requests for a time that is -1.0 or not finite.
 * f: not null; must outlive the link's delivery. lnk: not null, connected. wr_mon, wr_avg: null
 * ignores the message. Threads: at set-up, as ZEBMSG_register_library_msg_proc. */
ZEB_API void LOG_register_link(LOG_file *f, ZEBMSG_link *lnk, LOG_write_record wr_mon,
                               LOG_write_record wr_avg);

/* The same for one message, for a daemon that delivers them itself; wr_mon and wr_avg are called at
 * once, with the message's time. f, pm: not null. lnk: where a change of state is published, or
 * null. Threads: the file's owner. */
ZEB_API void LOG_internal_message_proc(LOG_file *f, ZEBMSG_proc_msg *pm, ZEBMSG_link *lnk,
                                       LOG_write_record wr_mon, LOG_write_record wr_avg);

/* ---- Averaging ---- */

/* Whether samples may be averaged, and what is to be said about the average. The flags: 1 and 2
 * contaminated, of one kind or the other; 4 contaminated, with bit 4 of the reported flags; 16 the
 * cut point. The others of `systemflags` are the daemon's. */
typedef struct LOG_avg_control {
    BOOL contaminated;
    BOOL bypassed;
    FTIME flush_until; /* no averaging before this time; -1.0: no flush */
    FTIME spinup_done; /* no averaging before this time; -1.0: no spin-up */
    int cp_val;        /* the present size cut */
    WORD systemflags;  /* of the average just finished */
    WORD persistflags; /* collected for the current one */
    BOOL avg_on_contam;
    BOOL avg_on_bypass;
    BOOL ignore_flush;
} LOG_avg_control;

/* Reads the configuration and clears the state, except `bypassed`, which stays as it is.
 * lac: not null, zeroed by the caller. root, local: the configuration and the daemon's branch of
 * it, or null. Keys of `local`, true when they begin with t or T or are a number other than 0:
 *   AverageOnContam  average while contaminated; else true
 *   AverageOnBypass  average while bypassed; else false for a daemon ("fil;Name", or the name of
 *                    the branch) of more than two characters that ends in 1 and a digit, and true
 *   IgnoreFlush      average during a flush; else as AverageOnBypass
 *   SpinupTime       no averaging for this time from now on, as seconds, minutes:seconds or
 *                    hours:minutes:seconds; else "Global;SpinupTime" of `root`, else none
 * Returns TRUE. Threads: at set-up. */
ZEB_API BOOL LOG_avg_control_init(LOG_avg_control *lac, CONF_node *root, CONF_node *local);

/* Releases what a control holds, which is nothing. Threads: any. */
ZEB_API void LOG_avg_control_delete(LOG_avg_control *lac);

/* Has the messages on contamination, bypass, flush, cut point and new averages keep a control up to
 * date, when they are processed. A flush only ever becomes longer.
 * lac: not null; must outlive the link's delivery. lnk: not null, connected.
 * Threads: at set-up, as ZEBMSG_register_library_msg_proc. */
ZEB_API void LOG_avg_register_link(LOG_avg_control *lac, ZEBMSG_link *lnk);

/* Tells whether a sample taken now may be averaged.
 * lac: not null.
 * Returns TRUE; FALSE while contaminated, bypassed or flushed, unless configured otherwise, and
 * during the spin-up.
 * Threads: any that reads while no message is processed; otherwise it may see the state before. */
ZEB_API BOOL LOG_avg_averaging(LOG_avg_control *lac);

/* The flags to be stored with the average: the daemon's own of `systemflags`, 1, 2 and 4 of
 * `persistflags` while contaminated, and 16 when the size cut is not 0.
 * lac: not null. Threads: as LOG_avg_averaging. */
ZEB_API WORD LOG_avg_effective_flags(LOG_avg_control *lac);

#ifdef __cplusplus
}
#endif
#endif
