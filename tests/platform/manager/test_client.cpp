// SPDX-License-Identifier: Apache-2.0
// A client in a process of its own: "check ID", "load ID", "add ID", "remove ID" on stdin, one line of answer each.
#include <iostream>
#include <string>

#include "platform/manager/ability_client.h"

int main()
{
    std::string verb;
    int id = 0;
    while (std::cin >> verb >> id) {
        if (verb == "check") {
            std::cout << ManagerTest::Check(id) << std::endl;
        } else if (verb == "load") {
            std::cout << ManagerTest::Load(id) << std::endl;
        } else if (verb == "add") {
            std::cout << ManagerTest::Add(id) << std::endl;
        } else if (verb == "remove") {
            std::cout << ManagerTest::Remove(id) << std::endl;
        }
    }
}
