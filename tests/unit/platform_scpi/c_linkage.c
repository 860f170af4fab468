#include <scpi/scpi.h>

static scpi_result_t nothing(scpi_t* context)
{
    (void)context;
    return SCPI_RES_OK;
}

int scpi_headers_serve_c(void);

/** 0 when a C program can build a context and run a message with it. */
int scpi_headers_serve_c(void)
{
    static const scpi_command_t commands[] = {{":NOTHing", nothing, 1}, {NULL, NULL, 0}};
    static const scpi_interface_t interface = {NULL, NULL, NULL, NULL, NULL};
    scpi_t context;
    char buffer[32];
    scpi_error_t errors[2];
    SCPI_Init(&context, commands, &interface, scpi_units_def, "a", "b", "c", "d", buffer, sizeof buffer,
              errors, 2);
    const scpi_bool_t good = SCPI_Input(&context, ":NOTH\n", 6);
    const scpi_bool_t bad = SCPI_Input(&context, ":NOT\n", 5);
    SCPI_Deinit(&context);
    return good && !bad ? 0 : 1;
}
