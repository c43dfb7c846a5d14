#ifndef BENCH_SUITE_COMMON_MAPPEDFILE_H
#define BENCH_SUITE_COMMON_MAPPEDFILE_H

#include <boost/interprocess/indexes/iset_index.hpp>
#include <boost/interprocess/managed_mapped_file.hpp>
#include <boost/interprocess/sync/mutex_family.hpp>

namespace suite {

/// A mapped file of Boost.Interprocess that objects are allocated in; without locks, as only one
/// thread of one process uses it.
using MappedFile = boost::interprocess::basic_managed_mapped_file<
    char, boost::interprocess::rbtree_best_fit<boost::interprocess::null_mutex_family>,
    boost::interprocess::iset_index>;

}  // namespace suite

#endif  // BENCH_SUITE_COMMON_MAPPEDFILE_H
