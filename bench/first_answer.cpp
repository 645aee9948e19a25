// SPDX-License-Identifier: Apache-2.0
// Answers one byte on its standard output as soon as it runs, and then waits for the end of its input: linked as
// veltra_server is, so what a start costs beyond this is the platform's and the service's.
#include <unistd.h>

int main()
{
    char byte = 0;
    if (::write(STDOUT_FILENO, &byte, 1) != 1) {
        return 1;
    }
    while (::read(STDIN_FILENO, &byte, 1) > 0) {}
    return 0;
}
