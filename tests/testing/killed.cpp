// The tests of the pytest plugin run it, and see what is left. With an argument it ends by itself.
#include <fa_api/testing/simulated_set.h>

#include <csignal>

int main(int argc, char**)
{
    const fa::SimulatedSet set;
    return argc > 1 ? 0 : std::raise(SIGKILL);
}
