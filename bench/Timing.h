#pragma once

#include <algorithm>
#include <chrono>
#include <ctime>
#include <vector>

/// Wall-clock microseconds that the work took.
template< typename Work >
double
microseconds( Work && work ) {
   const auto begin = std::chrono::steady_clock::now();
   work();
   const std::chrono::duration< double, std::micro > took =
      std::chrono::steady_clock::now() - begin;
   return took.count();
}

/// CPU milliseconds of this process that the work took: on a busy machine they say more.
template< typename Work >
double
cpuMilliseconds( Work && work ) {
   const auto begin = std::clock();
   work();
   return 1000.0 * static_cast< double >( std::clock() - begin ) / CLOCKS_PER_SEC;
}

template< typename Work >
double
milliseconds( Work && work ) {
   return microseconds( work ) / 1000;
}

inline double
median( std::vector< double > values ) {
   std::ranges::sort( values );
   return values[ values.size() / 2 ];
}
