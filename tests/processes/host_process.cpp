// A process that uses the library on a simulated host and does what it is told, a line at a time.
#include "core/varnok_shared_db.h"
#include "hostsim.h"
#include "kill_points.h"
#include "support/varnok_dbg.h"
#include "support/varnok_sem.h"
#include "varnok_mgmt.h"

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

// Loads, asks and frees until a kill point ends it, or age.
[[noreturn]] void live()
{
    for (int age = 0;; ++age) {
        varnok_library_instance = 0xFF; // as in a new process
        VARNOK_LoadLibrary();
        kill_points::pass("loaded");
        uint32_t handle = 0, count = 1;
        VARNOK_PHY_PORT_INFO port = {};
        VARNOK_TGT_INFO target = {}, *targets = &target;
        VARNOK_OpenAdapter(0, &handle);
        VARNOK_GetPhyPortInfo(handle, &port);
        VARNOK_GetTgtInfo(handle, &count, &targets);
        VARNOK_CloseAdapter(handle);
        VARNOK_FreeLibrary();
        if (age == 3)
            kill_points::arm("freed", 1, SIGKILL);
        kill_points::pass("freed");
    }
}

// "DEBUG-MASK CALL NTH SIGNAL": the new process's number.
pid_t fork_one(std::istream &how)
{
    std::string mask, call;
    long nth = 0;
    int signal = 0;
    how >> mask >> call >> nth >> signal;
    const pid_t child = fork();
    if (child != 0)
        return child;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::signal(SIGUSR1, [](int) {}); // interrupts a wait, and no more
    setenv("VARNOK_API_DEBUG", mask.c_str(), 1);
    kill_points::arm(call, nth, signal);
    live();
}

// The next that stops or ends, and how.
pid_t wait_for_one()
{
    int status = 0;
    const pid_t child = waitpid(-1, &status, WUNTRACED);
    std::cout << status << ' ';
    return child;
}

} // namespace

int main()
{
    const auto host = hostsim::host::from_text(R"({"ports":[{"driver":"pelt","sessions":[{"luns":[{}]}]}]})");
    hostsim::install(host.get());
    for (std::string order; std::getline(std::cin, order);) {
        long answer = -1;
        if (order == "load")
            answer = VARNOK_LoadLibrary();
        else if (order == "free")
            answer = VARNOK_FreeLibrary();
        else if (order == "slot")
            answer = varnok_library_instance;
        else if (order == "users")
            answer = varnok_get_total_libinst_count();
        else if (order == "hold database")
            answer = varnok_sem_wait(varnok_db_sem_id);
        else if (order == "hold log")
            answer = varnok_sem_wait(varnok_dbg_sem_id);
        else if (order == "print") {
            varnok_dbg_print("a line", ": ", 1, 10, 1);
            answer = 0;
        } else if (order.starts_with("fork ")) {
            std::istringstream how(order.substr(5));
            answer = fork_one(how);
        } else if (order == "wait")
            answer = wait_for_one();
        std::cout << answer << std::endl;
    }
    return 0;
}
