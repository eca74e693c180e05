/* pid.h - a positional PID controller: drives an actuator (a pump, a heater) towards a set point.
 *
 * Process value and output pass through calibration polynomials, each term and the output may be
 * limited, and everything is read from one branch of the configuration. With flow in litres per
 * minute and a pump driven by 0 to 100 per cent, the file may say
 *
 *   Pump;P,0.5    Pump;P;min,0    Pump;P;max,100    Pump;I,30    Pump;D,0    Pump;cal;PV,0.1;2
 *
 * and the daemon does this:
 *
 *   PID_controller pid;
 *   PID_control_build(&pid, CONF_lookup_tree(local, "Pump"));
 *   drive(PID_control_process_auto(&pid, volts, 16.7)); // each second
 *   PHYSUNITS_freepoly(&pid.pv_cal);
 *   PHYSUNITS_freepoly(&pid.out_cal);
 *
 * Threads: no lock is taken; a controller belongs to the thread that steps it. */
#ifndef ZEB2_PID_H
#define ZEB2_PID_H

#include "conf.h"
#include "physunits.h"
#include "port.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct PID_params {
    double p; /* proportional gain, output units per unit of the calibrated process value */
    double i; /* integral time, in seconds; 0: no integral term */
    double d; /* derivative time, in seconds */
} PID_params;

/* Set up by PID_control_init or PID_control_build; members may then be changed between steps. A
 * limit that is MVC is none. The terms are errors, in the unit of the calibrated process value, and
 * so are their limits; the output's limits apply before its calibration. */
typedef struct PID_controller {
    FTIME last_itter;       /* time of the latest automatic step, or of the reset */
    BOOL inverse;           /* the error is process value - set point, not the other way round */
    PID_params params;      /* gains */
    PHYSUNITS_poly pv_cal;  /* applied to the process value first; owned, freed by the owner */
    PHYSUNITS_poly out_cal; /* applied to the output last; owned, freed by the owner */
    double i_val;           /* integral term */
    double d_val;           /* latest derivative term */
    double e1;              /* previous error */
    double P_min, P_max;    /* limits of the output */
    double I_min, I_max;    /* limits of the integral term */
    double D_min, D_max;    /* limits of the derivative term */
} PID_controller;

/* Makes a controller with gains of 0, empty polynomials, no limits and not inverse, and resets it.
 * pid: not null (reported); fresh storage, or with its polynomials freed, since what it holds is
 * overwritten without being freed.
 * Threads: the controller's owner. */
ZEB_API void PID_control_init(PID_controller *pid);

/* Forgets the past: i_val and e1 become 0 and last_itter the current time; d_val stays.
 * pid: not null (reported).
 * Threads: the controller's owner. */
ZEB_API void PID_control_reset(PID_controller *pid);

/* Makes a controller as PID_control_init does and configures it.
 * pid: as for PID_control_init. local: the branch, read now and not kept; null configures nothing.
 *   "Inverse"             on when it begins with T or t or is a number other than 0
 *   "cal;PV", "cal;Out"   polynomials, as PHYSUNITS_buildpoly reads them
 *   "P", "I", "D"         gain and times; absent: 0
 *   "P;min", "P;max"      limits of the output; absent: none
 *   "I;min" ... "D;max"   limits of the terms, likewise
 * Numbers are read with UTIL_atofv: text that holds none is 0, what is not finite is MVC.
 * No result; want of memory is reported and leaves a polynomial empty.
 * Threads: the controller's owner. */
ZEB_API void PID_control_build(PID_controller *pid, CONF_node *local);

/* Makes one step:
 *   e     = sp - pv_cal(pv), or pv_cal(pv) - sp when inverse
 *   i_val = limited(i_val + e1 (dT / i)), from the previous error; before limiting 0 when i is 0
 *   d_val = limited((e - e1) (d / dT)); before limiting 0 when dT is 0
 *   out   = out_cal(limited(p (i_val + e + d_val)))
 * and e becomes e1. Limited: raised to the minimum, then lowered to the maximum, where set.
 * pid: not null (reported; gives MVC). pv: process value, raw. sp: set point, in the unit of the
 * calibrated process value. dT: seconds since the previous step.
 * Returns out, in the unit of its polynomial. An MVC is a number like any other here: a daemon that
 * has no process value makes no step.
 * Threads: the controller's owner. */
ZEB_API double PID_control_process(PID_controller *pid, double pv, double sp, double dT);

/* Makes one step over the time since the previous automatic step, or since the reset.
 * Parameters and result as for PID_control_process; last_itter becomes the current time.
 * Threads: the controller's owner. */
ZEB_API double PID_control_process_auto(PID_controller *pid, double pv, double sp);

#ifdef __cplusplus
}
#endif
#endif
