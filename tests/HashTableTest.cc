// Tables by hash against the standard's, whatever is done to them.

#include "platform/Lum/Attribute.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>

namespace {

/// Few different ones, some of them equal in their low bits.
struct PoorHash {
   std::size_t operator()( const std::string & key ) const { return key.size() << 32 | key[ 0 ]; }
};

template< class Table >
void
checkSame( const Table & table, const std::map< std::string, int > & expected ) {
   ASSERT_EQ( table.size(), expected.size() );
   std::map< std::string, int > seen;
   for ( const auto & [ key, value ] : table ) {
      ASSERT_TRUE( seen.emplace( key, value ).second ) << key;
   }
   ASSERT_EQ( seen, expected );
}

template< class Table >
void
storm( unsigned seed ) {
   std::mt19937 engine( seed );
   const unsigned keys = 1 + engine() % 3000;
   Table table;
   std::map< std::string, int > expected;
   std::map< std::string, const int * > places;
   for ( int step = 0; step < 20'000; ++step ) {
      const std::string key = std::to_string( engine() % keys );
      switch ( engine() % 7 ) {
      case 0:
      case 1: {
         const auto [ at, fresh ] = table.try_emplace( key, step );
         ASSERT_EQ( fresh, expected.emplace( key, step ).second );
         ASSERT_EQ( at->second, expected[ key ] );
         const int *& place = places[ key ];
         ASSERT_TRUE( fresh || place == &at->second ) << "an entry has moved";
         place = &at->second;
         break;
      }
      case 2:
         table[ key ] = expected[ key ] = step;
         places[ key ] = &table[ key ];
         break;
      case 3: ASSERT_EQ( table.erase( key ), expected.erase( key ) ); break;
      case 4: {
         const auto entry = table.extract( key );
         ASSERT_EQ( static_cast< bool >( entry ), expected.contains( key ) );
         ASSERT_TRUE( !entry || ( entry.key() == key && entry.mapped() == expected[ key ] ) );
         expected.erase( key );
         break;
      }
      case 5: {
         const auto at = table.find( key );
         ASSERT_EQ( at != table.end(), expected.contains( key ) );
         ASSERT_TRUE( at == table.end() || at->second == expected[ key ] );
         break;
      }
      default:
         if ( engine() % 2000 == 0 ) {
            for ( auto at = table.begin(); at != table.end(); ) {
               at = at->second % 3 ? ++at : table.erase( at );
            }
            std::erase_if( expected, []( const auto & entry ) { return entry.second % 3 == 0; } );
            const Table copy = table;
            ASSERT_TRUE( copy == table );
            checkSame( copy, expected );
            table.reserve( engine() % 5000 );
         }
      }
   }
   checkSame( table, expected );
   Table other = std::move( table );
   checkSame( other, expected );
   ASSERT_TRUE( table.empty() && table.begin() == table.end() );  // NOLINT: as it says
   other.clear();
   checkSame( other, {} );
}

TEST( HashTable, holdsWhatTheStandardsDo ) {
   for ( unsigned seed = 1; seed <= 20; ++seed ) {
      SCOPED_TRACE( "seed " + std::to_string( seed ) );
      storm< Lum::Map< std::string, int > >( seed );
      if ( seed <= 3 ) {
         storm< Lum::HashMap< std::string, int, PoorHash > >( seed );
      }
   }
}

}
