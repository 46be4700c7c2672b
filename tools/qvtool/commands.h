#pragma once
// Subcommands of qvtool. Each takes the arguments from its own name on:
// argv[0] is the subcommand's name, argv[1..argc-1] its arguments. It returns
// the process's exit status: 0 done, 1 failed (message printed), 2 bad usage.
// main.cpp lists every subcommand in its table with a one-line help.

int cmdBlas(int argc, char** argv);   // cmd_blas.cpp
int cmdSolve(int argc, char** argv);  // cmd_solve.cpp
int cmdBand(int argc, char** argv);   // cmd_band.cpp: qvtool band FILE.mtx [--sym]
int cmdGmres(int argc, char** argv);  // cmd_gmres.cpp: qvtool gmres FILE.mtx [--restart m] [--tol t] [--maxit k] [--jacobi]
int cmdSparse(int argc, char** argv);  // cmd_sparse.cpp: qvtool sparse FILE.mtx [--print] [--symmetric]
int cmdNull(int argc, char** argv);    // cmd_null.cpp: qvtool null [--grid n] [--nullfun auto|orth|sparse]
int cmdSpmv(int argc, char** argv);    // cmd_spmv.cpp: qvtool spmv FILE.mtx [--trans] [--threads N]
int cmdPoisson(int argc, char** argv);  // cmd_poisson.cpp (with poissongrid.cpp)
