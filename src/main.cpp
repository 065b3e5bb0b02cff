#include "app/Startup.h"

int main(int argc, char** argv) { return tw::runApplication(argc, argv); }
