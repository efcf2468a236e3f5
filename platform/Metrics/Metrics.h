#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// What a process counts about its work, for monitoring. Each series is an object of static storage
/// duration, known by its name as long as it lives.
namespace Metrics {

/// A series: appends itself to a text in Prometheus' exposition format (version 0.0.4).
class Series {
 public:
   /// The texts are literals. `name` is [a-z_]+, `help` one line.
   Series( const char * name, const char * help );
   virtual ~Series();
   Series( const Series & ) = delete;
   Series & operator=( const Series & ) = delete;

   const char * name() const noexcept { return name_; }
   virtual void write( std::string & text ) const = 0;

 protected:
   /// "# HELP" and "# TYPE".
   void writeHead( std::string & text, const char * type ) const;

 private:
   const char * const name_;
   const char * const help_;
};

/// A number that only rises while the process lives.
class Counter : public Series {
 public:
   using Series::Series;
   void inc( std::uint64_t by = 1 ) noexcept { count_ += by; }
   std::uint64_t count() const noexcept { return count_; }
   void write( std::string & text ) const override;

 private:
   std::uint64_t count_ = 0;
};

/// How often a quantity was at most each of some bounds, how often in all, and its sum.
class Histogram : public Series {
 public:
   /// The bounds rise.
   Histogram( const char * name, const char * help, std::vector< double > bounds );
   void observe( double value ) noexcept;
   void write( std::string & text ) const override;

 private:
   const std::vector< double > bounds_;
   std::vector< std::uint64_t >
      counts_;  ///< above the bound before, at most this one; then the rest
   double sum_ = 0;
};

/// All series of the process as text, in order of their names.
std::string text();

/// A number as the format has it.
std::string number( double value );

}
