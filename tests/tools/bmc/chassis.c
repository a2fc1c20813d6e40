/*
 * Module for ipmi_sim: the chassis behind the simulated controller.
 *
 * ipmi_sim alone refuses these requests; with the module they work, change the power state that
 * is kept here, and leave a line each in DIRECTORY/events (DIRECTORY is the module's argument;
 * DIRECTORY/power holds the state for a test to read):
 *
 *   App     06 02        cold reset
 *   App     06 07        ACPI power state: 00 00 when on, 05 00 when off
 *   Chassis 00 02        power down, up, cycle, reset, soft shutdown
 *   OEM     30 0d, 30 0e UID LED on, off
 */
#include <stdio.h>
#include <string.h>
#include <sys/time.h>

#include <OpenIPMI/mcserv.h>
#include <OpenIPMI/serv.h>

#define EXPORTED __attribute__((visibility("default")))
#define CONTROLLER_ADDRESS 0x20

static char directory[512];
static int powered;

static void append(const char *file, const char *mode, const char *line) {
    char path[600];
    snprintf(path, sizeof path, "%s/%s", directory, file);
    FILE *stream = fopen(path, mode);
    if (stream != NULL) {
        fprintf(stream, "%s\n", line);
        fclose(stream);
    }
}

static void record(const char *event) { append("events", "a", event); }

static void set_power(int on) {
    powered = on;
    append("power", "w", on ? "on" : "off");
}

static void simple_request(lmc_data_t *mc, msg_t *msg, unsigned char *answer, unsigned int *length,
                           void *event) {
    (void)mc;
    (void)msg;
    answer[0] = 0;
    *length = 1;
    record(event);
}

static void acpi_state(lmc_data_t *mc, msg_t *msg, unsigned char *answer, unsigned int *length,
                       void *event) {
    simple_request(mc, msg, answer, length, event);
    answer[1] = powered ? 0x00 : 0x05;
    answer[2] = 0x00;
    *length = 3;
}

static int chassis_set(lmc_data_t *mc, int operation, unsigned char *value, void *unused) {
    (void)mc;
    (void)unused;
    switch (operation) {
        case CHASSIS_CONTROL_POWER:
            set_power(*value != 0);
            record(powered ? "power on" : "power off");
            break;
        case CHASSIS_CONTROL_RESET:
            record("power reset");
            break;
        case CHASSIS_CONTROL_GRACEFUL_SHUTDOWN:
            set_power(0);
            record("power soft");
            break;
        default:
            break;
    }
    return 0;
}

static int chassis_get(lmc_data_t *mc, int operation, unsigned char *value, void *unused) {
    (void)mc;
    (void)unused;
    *value = operation == CHASSIS_CONTROL_POWER ? (unsigned char)powered : 0;
    return 0;
}

EXPORTED int ipmi_sim_module_print_version(sys_data_t *sys, char *options) {
    (void)sys;
    (void)options;
    return 0;
}

EXPORTED int ipmi_sim_module_init(sys_data_t *sys, const char *options) {
    (void)sys;
    if (options == NULL) {
        return 1;
    }
    snprintf(directory, sizeof directory, "%s", options);
    ipmi_emu_register_cmd_handler(0x06, 0x02, simple_request, "cold reset");
    ipmi_emu_register_cmd_handler(0x06, 0x07, acpi_state, "acpi status");
    ipmi_emu_register_cmd_handler(0x30, 0x0d, simple_request, "uid led on");
    ipmi_emu_register_cmd_handler(0x30, 0x0e, simple_request, "uid led off");
    return 0;
}

EXPORTED int ipmi_sim_module_post_init(sys_data_t *sys) {
    lmc_data_t *mc = sys->ipmb_addrs[CONTROLLER_ADDRESS];
    if (mc == NULL) {
        return 1;
    }
    ipmi_mc_set_chassis_control_func(mc, chassis_set, chassis_get, NULL);
    record("started");
    return 0;
}
