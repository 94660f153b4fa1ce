/* An application in C. */
#include <fa_api/automation_api.h>

int ChangeBaudRateFromC(unsigned int rate);

int ChangeBaudRateFromC(unsigned int rate)
{
    return automation_change_baud_rate_ex_uart(rate);
}
