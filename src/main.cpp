#include "app/Startup.h"
#include "ui/WindowApplication.h"

int main(int argc, char** argv) { return tw::runApplication(argc, argv, tw::runWindowApplication); }
