#include "arm/input_manager.h"

int main(int argc, char** argv)
{
    input_manager_main(argc, argv);
}
