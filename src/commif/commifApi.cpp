#include "commif/commif.h"

commIfDesc_t commIfDesc[COMMIF_MAX_DESC];
