// The tests of the pytest plugin run it, and see what is left.
#include <fa_api/testing/simulated_set.h>

#include <csignal>

int main()
{
    const fa::SimulatedSet set;
    return std::raise(SIGKILL);
}
