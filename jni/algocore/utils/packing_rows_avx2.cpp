// The row loops again, for x86-64 processors with AVX2. The build compiles this file with -mavx2 and
// defines VAI_HAVE_AVX2_ROWS where that applies; elsewhere it is empty.
#if defined(VAI_HAVE_AVX2_ROWS)
#define VAI_ROWS_TABLE kAvx2Rows
#define VAI_ROWS_NAME "avx2"
#include "packing_rows.cpp"
#endif
