// A process that uses the library on a simulated host and does what it is told, a line at a time.
#include "hostsim.h"
#include "varnok_dbg.h"
#include "varnok_mgmt.h"
#include "varnok_sem.h"
#include "varnok_shared_db.h"

#include <iostream>
#include <string>

int main()
{
    const auto host = hostsim::host::from_text(R"({"ports":[{"driver":"pelt"}]})");
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
        }
        std::cout << answer << std::endl;
    }
    return 0;
}
