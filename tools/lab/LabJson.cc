// The JSON layer of lab files. The parser of nlohmann-json does the lexing, through its event
// interface, since its own documents keep neither the order of members nor keys that stand twice;
// both matter here: errors are reported in the order of the document, and a key given twice is one.
// The parser itself does not recurse; the walks over the result do, which is why nesting is bounded
// while the document is built.

#include "tools/lab/LabJson.h"

#include "tools/pace/Job.h"
#include "tools/text/Plain.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

namespace Lab {

namespace {

constexpr std::size_t shortLength = 48;

/// Control characters and bytes that are not ASCII in `text` that may be anything become "?".
std::string
printable( std::string_view text ) {
   std::string out( text.substr( 0, shortLength * 2 ) );
   std::replace_if(
      out.begin(), out.end(), []( char c ) { return c < ' ' || c > '~'; }, '?' );
   return text.size() > out.size() ? out + "..." : out;
}

std::string
oneLine( const std::string & pointer, const std::string & text ) {
   return pointer.empty() ? text : Text::plain( pointer ) + ": " + text;
}

/// "expected B, found A" out of the parser's "[...] while parsing ... - [unexpected ]A[; expected
/// B]".
std::string
syntaxText( std::string_view what ) {
   std::string_view found = what;
   for ( const std::string_view mark : { "] ", " - ", "unexpected " } ) {
      if ( const auto at = found.find( mark ); at != found.npos ) {
         found.remove_prefix( at + mark.size() );
      }
   }
   constexpr std::string_view mark = "; expected ";
   const auto end = found.rfind( mark );
   const std::string expected( end == found.npos ? "valid JSON"
                                                 : found.substr( end + mark.size() ) );
   return "expected " + expected + ", found " + printable( found.substr( 0, end ) );
}

/// Receives the parser's events and builds the document.
class Builder {
 public:
   explicit Builder( std::string_view text ) : text_( text ) {}

   bool null() { return add( LabJson() ); }
   bool boolean( bool value ) { return add( LabJson( value ) ); }
   bool number_integer( std::int64_t value ) {
      return value < 0 ? add( LabJson( value ) )
                       : add( LabJson( static_cast< std::uint64_t >( value ) ) );
   }
   bool number_unsigned( std::uint64_t value ) { return add( LabJson( value ) ); }
   bool number_float( double value, const std::string & text ) {
      return add( LabJson( LabJsonReal{ value, text } ) );
   }
   bool string( std::string & value ) { return add( LabJson( std::move( value ) ) ); }
   bool binary( const std::vector< std::uint8_t > & ) { return false; }
   bool start_object( std::size_t ) { return open( LabJson( LabJsonObject() ) ); }
   bool start_array( std::size_t ) { return open( LabJson( LabJsonArray() ) ); }
   bool key( std::string & name ) {
      open_.back()->as< LabJsonObject >()->push_back( { std::move( name ), LabJson() } );
      return true;
   }
   bool end_object() {
      checkKeys( *open_.back()->as< LabJsonObject >() );
      open_.pop_back();
      return true;
   }
   bool end_array() {
      open_.pop_back();
      return true;
   }
   template< class Exception >
   bool parse_error( std::size_t position, const std::string &, const Exception & error ) {
      throw failure( position, syntaxText( error.what() ) );
   }
   /// `position` counts from 1.
   LabError failure( std::size_t position, const std::string & what ) const {
      const auto before = text_.substr( 0, std::min( position, text_.size() + 1 ) - 1 );
      const auto line = 1 + std::count( before.begin(), before.end(), '\n' );
      const auto column = before.size() - ( before.rfind( '\n' ) + 1 ) + 1;
      return LabError( pointer(), "line " + std::to_string( line ) + ", column "
                                     + std::to_string( column ) + ": " + what );
   }

   LabJson root;

 private:
   LabJson * add( LabJson && value, bool ) {
      Pace::breathe();
      if ( open_.empty() ) {
         root = std::move( value );
         return &root;
      }
      if ( auto * members = open_.back()->as< LabJsonObject >() ) {
         members->back().value = std::move( value );
         return &members->back().value;
      }
      auto & elements = *open_.back()->as< LabJsonArray >();
      elements.push_back( std::move( value ) );
      return &elements.back();
   }
   bool add( LabJson && value ) { return add( std::move( value ), true ) != nullptr; }
   bool open( LabJson && value ) {
      open_.push_back( add( std::move( value ), true ) );
      if ( open_.size() > LabJson::maxDepth ) {
         throw LabError( pointer(), "expected at most " + std::to_string( LabJson::maxDepth )
                                       + " levels of arrays and objects, found more" );
      }
      return true;
   }
   /// Where the value stands that is being read.
   std::string pointer() const {
      std::string text;
      for ( const LabJson * value : open_ ) {
         if ( const auto * elements = value->as< LabJsonArray >();
              elements && !elements->empty() ) {
            text += "/" + std::to_string( elements->size() - 1 );
         } else if ( const auto * members = value->as< LabJsonObject >();
                     members && !members->empty() ) {
            text += "/" + pointerToken( members->back().key );
         }
      }
      return text;
   }
   void checkKeys( LabJsonObject & members ) {
      std::unordered_set< std::string_view > keys;
      for ( std::size_t i = 0; i < members.size(); ++i ) {
         Pace::breathe();
         if ( !keys.insert( members[ i ].key ).second ) {
            members.resize( i + 1 );
            throw LabError( pointer(), "expected each key once in an object, found "
                                          + LabJson( members[ i ].key ).inShort() + " again" );
         }
      }
   }

   std::string_view text_;
   std::vector< LabJson * > open_;  // outermost first
};

/// The token that stands for `token` in a JSON pointer.
std::string
plainToken( std::string_view token ) {
   std::string plain;
   for ( std::size_t i = 0; i < token.size(); ++i ) {
      const bool escape = token[ i ] == '~' && i + 1 < token.size();
      plain += !escape ? token[ i ] : token[ ++i ] == '1' ? '/' : '~';
   }
   return plain;
}

}

LabError::LabError( std::string pointer, std::string text, bool missing )
   : std::runtime_error( oneLine( pointer, text ) ),
     pointer_( std::move( pointer ) ),
     text_( std::move( text ) ),
     missing_( missing ) {}

LabJson::~LabJson() {
   if ( as< LabJsonObject >() || as< LabJsonArray >() ) {
      Pace::breatheQuietly();
   }
}

LabJson
LabJson::parse( std::string_view text ) {
   Builder builder( text );
   nlohmann::json::sax_parse( text.begin(), text.end(), &builder );
   // The parser takes a zero byte for the end of the text.
   if ( const auto zero = text.find( '\0' ); zero != text.npos ) {
      throw builder.failure( zero + 1, "expected end of input, found a zero byte" );
   }
   return std::move( builder.root );
}

const LabJson *
LabJson::find( std::string_view key ) const noexcept {
   if ( const auto * members = as< LabJsonObject >() ) {
      for ( const LabJsonMember & member : *members ) {
         if ( member.key == key ) {
            return &member.value;
         }
      }
   }
   return nullptr;
}

const LabJson *
LabJson::resolve( std::string_view pointer ) const {
   const LabJson * value = this;
   while ( value && !pointer.empty() ) {
      pointer.remove_prefix( 1 );
      const auto end = std::min( pointer.find( '/' ), pointer.size() );
      const std::string token = plainToken( pointer.substr( 0, end ) );
      pointer.remove_prefix( end );
      if ( const auto * elements = value->as< LabJsonArray >() ) {
         const std::size_t index = std::strtoul( token.c_str(), nullptr, 10 );
         value = index < elements->size() ? &( *elements )[ index ] : nullptr;
      } else {
         value = value->find( token );
      }
   }
   return value;
}

void
LabJson::erase( std::string_view key ) {
   if ( auto * members = as< LabJsonObject >() ) {
      std::erase_if( *members, [ & ]( const LabJsonMember & m ) { return m.key == key; } );
   }
}

void
LabJson::merge( const LabJson & patch ) {
   if ( const auto * members = patch.as< LabJsonObject >() ) {
      if ( !as< LabJsonObject >() ) {
         value_ = LabJsonObject();
      }
      mergeMembers( *members );
   } else {
      value_ = patch.value_;
   }
}

void
LabJson::mergeMembers( const LabJsonObject & patch ) {
   auto & members = *as< LabJsonObject >();
   // Few are looked for one by one; an index of all is for many.
   constexpr std::size_t few = 8;
   std::unordered_map< std::string_view, std::size_t > index;
   if ( patch.size() > few ) {
      members.reserve( members.size() + patch.size() );  // the index points at keys
      for ( std::size_t i = 0; i < members.size(); ++i ) {
         index.emplace( members[ i ].key, i );
      }
   }
   const auto find = [ & ]( const std::string & key ) -> LabJsonMember * {
      if ( patch.size() > few ) {
         const auto at = index.find( key );
         return at == index.end() ? nullptr : &members[ at->second ];
      }
      const auto at = std::ranges::find( members, key, &LabJsonMember::key );
      return at == members.end() ? nullptr : &*at;
   };
   std::unordered_set< std::string_view > gone;
   for ( const LabJsonMember & change : patch ) {
      LabJsonMember * const present = find( change.key );
      if ( change.value.isNull() ) {
         if ( present ) {
            gone.insert( change.key );
         }
         continue;
      }
      if ( !present ) {
         members.push_back( { change.key, LabJson() } );
      }
      ( present ? *present : members.back() ).value.merge( change.value );
   }
   if ( !gone.empty() ) {
      std::erase_if(
         members, [ & ]( const LabJsonMember & member ) { return gone.contains( member.key ); } );
   }
}

std::string
LabJson::text() const {
   struct Visitor {
      std::string operator()( std::nullptr_t ) const { return "null"; }
      std::string operator()( bool value ) const { return value ? "true" : "false"; }
      std::string operator()( std::uint64_t value ) const { return std::to_string( value ); }
      std::string operator()( std::int64_t value ) const { return std::to_string( value ); }
      std::string operator()( const LabJsonReal & real ) const { return real.text; }
      std::string operator()( const std::string & text ) const { return jsonText( text ); }
      std::string operator()( const LabJsonArray & elements ) const {
         std::string out;
         for ( const LabJson & element : elements ) {
            out += ( out.empty() ? "" : "," ) + element.text();
         }
         return "[" + out + "]";
      }
      std::string operator()( const LabJsonObject & members ) const {
         std::string out;
         for ( const LabJsonMember & member : members ) {
            out += ( out.empty() ? "" : "," ) + jsonText( member.key ) + ":" + member.value.text();
         }
         return "{" + out + "}";
      }
   };
   return std::visit( Visitor(), value_ );
}

std::string
LabJson::inShort() const {
   if ( const auto * members = as< LabJsonObject >() ) {
      return members->empty() ? "{}" : "an object";
   }
   if ( const auto * elements = as< LabJsonArray >() ) {
      return elements->empty() ? "[]" : "a list of " + std::to_string( elements->size() );
   }
   const auto * string = as< std::string >();
   if ( string && string->size() > shortLength ) {
      std::size_t length = shortLength;
      while ( ( ( *string )[ length ] & 0xc0 ) == 0x80 ) {
         --length;  // inside of a character
      }
      return jsonText( string->substr( 0, length ) + "..." );
   }
   const std::string whole = text();
   return string || whole.size() <= shortLength ? whole : whole.substr( 0, shortLength ) + "...";
}

std::string
pointerToken( std::string_view token ) {
   std::string escaped;
   for ( const char c : token ) {
      escaped += c == '~' ? "~0" : c == '/' ? "~1" : std::string( 1, c );
   }
   return escaped;
}

std::string
jsonText( std::string_view text ) {
   using Json = nlohmann::json;
   return Json( text ).dump( -1, ' ', false, Json::error_handler_t::replace );
}

}
