#include "pid.h"

#include "diag.h"
#include "util.h"
#include "util_int.h"

namespace {

// A number from the configuration, where there is one; the default otherwise.
double number_at(CONF_node *node, const char *path, double absent) {
    const char *text = CONF_lookup(node, path);
    return text != nullptr ? UTIL_atofv(text) : absent;
}

void read_term(CONF_node *local, const char *name, double *param, double *min, double *max) {
    *param = number_at(local, name, 0.0);
    CONF_node *term = CONF_lookup_tree(local, name);
    *min = number_at(term, "min", MVC);
    *max = number_at(term, "max", MVC);
}

double limited(double value, double min, double max) {
    if (min != MVC && value < min)
        value = min;
    if (max != MVC && value > max)
        value = max;
    return value;
}

} // namespace

void PID_control_init(PID_controller *pid) {
    if (!ZEB_CHECK(pid != nullptr))
        return;
    *pid = {};
    pid->P_min = pid->P_max = MVC;
    pid->I_min = pid->I_max = MVC;
    pid->D_min = pid->D_max = MVC;
    PID_control_reset(pid);
}

void PID_control_reset(PID_controller *pid) {
    if (!ZEB_CHECK(pid != nullptr))
        return;
    pid->last_itter = UTIL_ftime();
    pid->i_val = 0.0;
    pid->e1 = 0.0;
}

void PID_control_build(PID_controller *pid, CONF_node *local) {
    if (!ZEB_CHECK(pid != nullptr))
        return;
    PID_control_init(pid);
    if (const char *inverse = CONF_lookup(local, "Inverse"))
        pid->inverse = zeb::reads_as_true(inverse);
    PHYSUNITS_buildpoly(&pid->pv_cal, CONF_lookup(local, "cal;PV"));
    PHYSUNITS_buildpoly(&pid->out_cal, CONF_lookup(local, "cal;Out"));
    read_term(local, "P", &pid->params.p, &pid->P_min, &pid->P_max);
    read_term(local, "I", &pid->params.i, &pid->I_min, &pid->I_max);
    read_term(local, "D", &pid->params.d, &pid->D_min, &pid->D_max);
}

double PID_control_process(PID_controller *pid, double pv, double sp, double dT) {
    if (!ZEB_CHECK(pid != nullptr))
        return MVC;
    pv = PHYSUNITS_applypoly(&pid->pv_cal, pv);
    const double e = pid->inverse ? pv - sp : sp - pv;
    // The previous error, not the current one: the integral lags one step, as stations are tuned.
    const double i_val = pid->params.i != 0.0 ? pid->i_val + pid->e1 * (dT / pid->params.i) : 0.0;
    const double d_val = dT != 0.0 ? (e - pid->e1) * (pid->params.d / dT) : 0.0;
    pid->i_val = limited(i_val, pid->I_min, pid->I_max);
    pid->d_val = limited(d_val, pid->D_min, pid->D_max);
    pid->e1 = e;
    const double out =
        limited(pid->params.p * (pid->i_val + e + pid->d_val), pid->P_min, pid->P_max);
    return PHYSUNITS_applypoly(&pid->out_cal, out);
}

double PID_control_process_auto(PID_controller *pid, double pv, double sp) {
    if (!ZEB_CHECK(pid != nullptr))
        return MVC;
    const FTIME now = UTIL_ftime();
    const double dT = now - pid->last_itter;
    pid->last_itter = now;
    return PID_control_process(pid, pv, sp, dT);
}
