"""The driver of the comparison with other libraries; scripts/bench.sh starts it.

plan      what is run: workloads, sizes, timeouts
run       one process a figure, in interleaved rounds
group     a memory limit around a process
machine   what it ran on, and whether that kept still
figures   lines of the programs, medians and spreads
targets   the figures to reach
tables    the results as Markdown
plots     the results as drawings
against   this library beside an earlier revision of itself
"""
