// The eleven objects that the interface names. They are the library's only writable data, and no
// function of the library touches them.
#include "rast.h"

void* fp_prm = nullptr;
void* fpo_c = nullptr;
void* fpo_m = nullptr;
void* fpo_y = nullptr;
void* fpo_k = nullptr;
void* fpi_c = nullptr;
void* fpi_m = nullptr;
void* fpi_y = nullptr;
void* fp_tbl1 = nullptr;
void* fp_tbl2 = nullptr;
void* fp_tbl3 = nullptr;
