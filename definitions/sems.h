/* sems.h - scanning electrical mobility spectrometer: a classifier column, whose voltage sweeps
 * over the mobilities, and a particle counter behind it. Missing: MVC in a real, -1 in a time. The
 * bits of flags are listed in the status record. */
#ifndef ZEB2_DEFINITIONS_SEMS_H
#define ZEB2_DEFINITIONS_SEMS_H

#include <zeb2/port.h>

#define SEMS_BINS 128

#pragma pack(push, 4)

/* One scan, with means of its conditions. MSG_SEMS_DN_UP and MSG_SEMS_DN_DOWN carry what was
 * counted while the voltage rose and fell: bins holds the concentration at the counter.
 * MSG_SEMS_DLOGD carries the distribution behind it, corrected for charge and losses: bins holds
 * the concentration per decade of diameter, counts is missing. MSG_SEMS_D announces the diameters
 * alone. Bins from n on are missing. */
/* clang-format off */
typedef struct {
    FTIME start_time;
    FTIME end_time;
    WORD n; /* Number of bins used */
    double Dp[SEMS_BINS]; /* Diameter in the middle of each bin (nm) |
                             Ns${INDEX:1:2:3:4:5:6:7:8:9:10:11:12:13:14:15:16:17:18:19:20:21:22:23:24:25:26:27:28:29:30:31:32:33:34:35:36:37:38:39:40:41:42:43:44:45:46:47:48:49:50:51:52:53:54:55:56:57:58:59:60:61:62:63:64:65:66:67:68:69:70:71:72:73:74:75:76:77:78:79:80:81:82:83:84:85:86:87:88:89:90:91:92:93:94:95:96:97:98:99:100:101:102:103:104:105:106:107:108:109:110:111:112:113:114:115:116:117:118:119:120:121:122:123:124:125:126:127:128}_${INST:N\d+} | 0;1E4 */
    double bins[SEMS_BINS]; /* Particle concentration of each bin (1/cm3) |
                               Nb${INDEX:1:2:3:4:5:6:7:8:9:10:11:12:13:14:15:16:17:18:19:20:21:22:23:24:25:26:27:28:29:30:31:32:33:34:35:36:37:38:39:40:41:42:43:44:45:46:47:48:49:50:51:52:53:54:55:56:57:58:59:60:61:62:63:64:65:66:67:68:69:70:71:72:73:74:75:76:77:78:79:80:81:82:83:84:85:86:87:88:89:90:91:92:93:94:95:96:97:98:99:100:101:102:103:104:105:106:107:108:109:110:111:112:113:114:115:116:117:118:119:120:121:122:123:124:125:126:127:128}_${INST:N\d+} | 0;1E7 */
    double counts[SEMS_BINS]; /* Particles counted in each bin (count) |
                                 Cb${INDEX:1:2:3:4:5:6:7:8:9:10:11:12:13:14:15:16:17:18:19:20:21:22:23:24:25:26:27:28:29:30:31:32:33:34:35:36:37:38:39:40:41:42:43:44:45:46:47:48:49:50:51:52:53:54:55:56:57:58:59:60:61:62:63:64:65:66:67:68:69:70:71:72:73:74:75:76:77:78:79:80:81:82:83:84:85:86:87:88:89:90:91:92:93:94:95:96:97:98:99:100:101:102:103:104:105:106:107:108:109:110:111:112:113:114:115:116:117:118:119:120:121:122:123:124:125:126:127:128}_${INST:N\d+} | 0;1E8 */
    double total;    /* Particle concentration over all bins (1/cm3) | N_${INST:N\d+} | 0;1E7 */
    double Q_sheath; /* Sheath flow (lpm) | Q2_${INST:N\d+} | 0;50 */
    double Q_sample; /* Sample flow (lpm) | Q1_${INST:N\d+} | 0;10 */
    double P;        /* Sheath pressure (hPa) | P_${INST:N\d+} | 100;1200 */
    double T;        /* Sheath temperature (C) | T_${INST:N\d+} | -50;100 */
    double U;        /* Sheath relative humidity (%) | U_${INST:N\d+} | -5;110 */
    WORD flags;      /* Every instrument status seen (bits) */
} NET_SEMS_Bins;
/* clang-format on */

typedef struct {
    WORD n;              /* Number of bins used */
    double Dp_min;       /* Least diameter (nm) */
    double Dp_max;       /* Greatest diameter (nm) */
    double V_min;        /* Least column voltage (V) */
    double V_max;        /* Greatest column voltage (V) */
    double Q_sheath;     /* Sheath flow set point (lpm) */
    double Q_sample;     /* Sample flow set point (lpm) */
    double scan_time;    /* Duration of a scan (s) */
    double hold_time;    /* Time at the ends of a scan in which nothing is counted (s) */
    double delay;        /* Time from the column to the counter (s) */
    double inner_radius; /* Inner radius of the column (mm) */
    double outer_radius; /* Outer radius of the column (mm) */
    double length;       /* Length of the column (mm) */
    BOOL negative;       /* The voltage is negative */
    WORD charger; /* Charger before the column: 0 none, 1 radioactive, 2 soft x-ray, 3 corona */
    STRING counter[32]; /* Name of the daemon that runs the particle counter */
    STRING serial_number[32];
    STRING firmware[32];
} NET_SEMS_Info;

typedef struct {
    WORD state;       /* 0 starting, 1 rising, 2 holding, 3 falling, 4 waiting, 5 no answer */
    WORD flags;       /* Instrument status (bits): 0 column voltage, 1 sheath flow, 2 sample flow, 3
                         pressure, 4 temperature, 5 relative humidity, 6 particle counter, 7
                         charger, 8 impactor clogged */
    double V;         /* Column voltage (V) | V_${INST:N\d+} | -12000;12000 */
    double Dp;        /* Diameter selected now (nm) | Ns_${INST:N\d+} | 0;1E4 */
    double Q_sheath;  /* Sheath flow (lpm) | Q2_${INST:N\d+} | 0;50 */
    double Q_sample;  /* Sample flow (lpm) | Q1_${INST:N\d+} | 0;10 */
    double Q_excess;  /* Excess flow (lpm) | Q3_${INST:N\d+} | 0;50 */
    double dP;        /* Pressure drop over the impactor (hPa) | Pd_${INST:N\d+} | -10;500 */
    double P;         /* Sheath pressure (hPa) | P_${INST:N\d+} | 100;1200 */
    double T;         /* Sheath temperature (C) | T_${INST:N\d+} | -50;100 */
    double T2;        /* Sample temperature (C) | T2_${INST:N\d+} | -50;100 */
    double U;         /* Sheath relative humidity (%) | U_${INST:N\d+} | -5;110 */
    double U2;        /* Sample relative humidity (%) | U2_${INST:N\d+} | -5;110 */
    double N;         /* Particle concentration (1/cm3) | N_${INST:N\d+} | 0;1E7 */
    FTIME scan_start; /* Start of the present scan (s since 1970) */
    FTIME scan_end;   /* Expected end of the present scan (s since 1970) */
} NET_SEMS_Status;

#pragma pack(pop)

ZEB_MESSAGE(MSG_SEMS_D, "sems", NET_SEMS_Bins);
ZEB_MESSAGE(MSG_SEMS_DLOGD, "sems", NET_SEMS_Bins);
ZEB_MESSAGE(MSG_SEMS_DN_DOWN, "sems", NET_SEMS_Bins);
ZEB_MESSAGE(MSG_SEMS_DN_UP, "sems", NET_SEMS_Bins);
ZEB_MESSAGE(MSG_SEMS_INFO, "sems", NET_SEMS_Info);
ZEB_MESSAGE(MSG_SEMS_STATUS, "sems", NET_SEMS_Status);

#endif
