/* An application in the oldest standard of C: the headers, a call, and what the version means. */
#include <fa_api/automation_api.h>
#include <fa_api/version.h>

#define MAJOR FA_API_VERSION_MAJOR
#define MINOR FA_API_VERSION_MINOR
#define PATCH FA_API_VERSION_PATCH

#if !FA_API_VERSION_AT_LEAST(MAJOR, MINOR, PATCH) || !FA_API_VERSION_AT_LEAST(MAJOR - 1, 99, 99)
#error "this version is taken for an earlier one"
#endif
#if FA_API_VERSION_AT_LEAST(MAJOR + 1, 0, 0) || FA_API_VERSION_AT_LEAST(MAJOR, MINOR + 1, 0) || \
    FA_API_VERSION_AT_LEAST(MAJOR, MINOR, PATCH + 1)
#error "this version is taken for a later one"
#endif

int ChangeBaudRateFromC(unsigned int rate);

int ChangeBaudRateFromC(unsigned int rate)
{
    return automation_change_baud_rate_ex_uart(rate);
}
