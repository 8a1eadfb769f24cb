// tarnwick-admin: see commands.h.
#include "commands.h"

int main(int argc, char** argv) { return tarnwick::admin::run_admin(argc, argv); }
