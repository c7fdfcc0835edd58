#include "viewerprogram.h"

int main(int argc, char ** argv) {
    return runViewer(argc, argv);
}
