// CKestrelInterface: an abstract interface exported for the host program. The library
// only exports it: it neither derives from it nor calls any of its operations, so what
// each operation means is the host's to decide. Owns no state; a host object derived from
// it is as thread-safe as the host makes it.
#ifndef BASICS_KESTRELINTERFACE_H_
#define BASICS_KESTRELINTERFACE_H_

class CKestrelInterface {
 public:
  // Defined out of line, so that the class and its vtable are exported from the library.
  virtual ~CKestrelInterface();

  // Five operations whose names and meanings the library does not fix: the host gives
  // them their sense in its derived class. The library never calls them.
  virtual void Operation1() = 0;
  virtual void Operation2() = 0;
  virtual void Operation3() = 0;
  virtual void Operation4() = 0;
  virtual void Operation5() = 0;

  // The interface holds nothing, so a copy copies nothing; a derived class copies its own
  // members itself.
  CKestrelInterface(const CKestrelInterface& other);
  // Copies nothing and answers *this.
  CKestrelInterface& operator=(const CKestrelInterface& other);

 protected:
  // Only a derived class may make one.
  CKestrelInterface();
};

#endif  // BASICS_KESTRELINTERFACE_H_
