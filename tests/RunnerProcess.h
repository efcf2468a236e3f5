#pragma once

#include "tools/service/Client.h"

#include <string>
#include <sys/types.h>
#include <vector>

/// A directory that goes with its object.
class TemporaryDirectory {
 public:
   TemporaryDirectory();
   ~TemporaryDirectory();
   TemporaryDirectory( const TemporaryDirectory & ) = delete;
   TemporaryDirectory & operator=( const TemporaryDirectory & ) = delete;

   std::string operator/( const std::string & name ) const { return path_ + "/" + name; }
   const std::string & path() const { return path_; }

 private:
   std::string path_;
};

struct ProgramResult {
   int exitStatus = -1;
   std::string out, err;
};

/// Runs a program of the build ("cspfctl"), or one given by its path, to its end.
ProgramResult runProgram( std::string program, std::vector< std::string > arguments );

/// Starts one; its errors go to the file, where one is given.
pid_t startProgram( const std::string & program, const std::vector< std::string > & arguments,
                    const std::string & err = "" );

/// A program of the build as a process of its own, with what it says on standard error in a file.
class Background {
 public:
   Background( const std::string & program, std::vector< std::string > arguments,
               const std::string & log );
   /// Kills it where it still runs.
   ~Background();
   Background( const Background & ) = delete;
   Background & operator=( const Background & ) = delete;

 private:
   const pid_t pid_;
};

/// The service as a process of its own, with its socket and its traces in a directory.
class RunnerProcess {
 public:
   /// Starts it and waits until it answers.
   explicit RunnerProcess( const TemporaryDirectory & directory,
                           std::vector< std::string > arguments = {} );
   /// Kills what still runs.
   ~RunnerProcess();
   RunnerProcess( const RunnerProcess & ) = delete;
   RunnerProcess & operator=( const RunnerProcess & ) = delete;

   const std::string & socket() const { return socket_; }
   pid_t pid() const { return pid_; }
   /// Sends the signal and waits for the end; the status as of waitpid.
   int end( int signal );

 private:
   std::string socket_;
   pid_t pid_ = -1;
};
