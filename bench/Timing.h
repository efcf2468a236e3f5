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

template< typename Work >
double
milliseconds( Work && work ) {
   return microseconds( work ) / 1000;
}

/// CPU milliseconds of this process that the work took: a busy machine does not change them.
template< typename Work >
double
cpuMilliseconds( Work && work ) {
   const auto now = []() {
      timespec time{};
      clock_gettime( CLOCK_PROCESS_CPUTIME_ID, &time );
      return static_cast< double >( time.tv_sec ) * 1e3
             + static_cast< double >( time.tv_nsec ) * 1e-6;
   };
   const double begin = now();
   work();
   return now() - begin;
}

/// Milliseconds of the CPU, and of the wall clock.
struct Took {
   double cpu, wall;
};

template< typename Work >
Took
timed( Work && work ) {
   Took took{};
   took.wall = milliseconds( [ & ]() { took.cpu = cpuMilliseconds( work ); } );
   return took;
}

/// Of 0.9: the value below which nine in ten are.
inline double
quantile( std::vector< double > values, double share ) {
   std::ranges::sort( values );
   return values[ static_cast< std::size_t >( static_cast< double >( values.size() - 1 )
                                              * share ) ];
}

inline double
median( std::vector< double > values ) {
   std::ranges::sort( values );
   return values[ values.size() / 2 ];
}
