// The record of a module that is made with an id.
#include "velto/module.h"

VELTO_MODULE(VELTO_MODULE_ID);
